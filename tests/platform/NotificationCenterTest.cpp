// The notification center: delivery by name, synchronously, to the observers registered when the
// post starts; observers that change the registrations while a post is under way.
#include <string>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

using Log = std::vector<std::string>;

class NotificationCenterTest : public ::testing::Test {
protected:
    NotificationCenter::ObserverId record(const std::string& name, const std::string& tag) {
        return center.addObserver(
            name, [this, tag](const Notification& n) { log.push_back(tag + ":" + n.name); });
    }
    void post(const std::string& name) { center.post({name, nullptr, std::nullopt}); }

    NotificationCenter center;
    Log log;
};

TEST_F(NotificationCenterTest, DeliversByNameInRegistrationOrderAndAnEmptyNameTakesAll) {
    const auto removed = record("A", "0");
    record("A", "1");
    record("", "all");
    record("B", "2");
    record("A", "3");
    center.removeObserver(removed);
    center.removeObserver(removed);
    center.removeObserver(9999);
    post("A");
    post("C");
    EXPECT_EQ(log, (Log{"1:A", "all:A", "3:A", "all:C"}));
}

TEST_F(NotificationCenterTest, ObserversChangedDuringAPostCountFromTheNextPost) {
    NotificationCenter::ObserverId victim = 0;
    NotificationCenter::ObserverId self = 0;
    self = center.addObserver("A", [&](const Notification& n) {
        log.push_back("changer");
        record("A", "late");
        center.removeObserver(victim);
        center.removeObserver(self);
        center.post(n); // heard by "late" only: no endless recursion
    });
    victim = record("A", "victim");
    post("A");
    EXPECT_EQ(log, (Log{"changer", "late:A"})) << "the victim is skipped, late hears one post";
}

} // namespace
} // namespace vantelo_sounds
