// The notification center: delivery by name, synchronously, to the observers registered when the
// post starts; observers that change the registrations while a post is under way.
#include <string>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vector>

#include <gtest/gtest.h>

namespace vantelo_sounds {
namespace {

using Log = std::vector<std::string>;

TEST(NotificationCenterTest, DeliversByNameInOrderAndChangesDuringAPostCountFromTheNextPost) {
    NotificationCenter center;
    Log log;
    const auto record = [&](const std::string& name, const std::string& tag) {
        return center.addObserver(
            name, [&log, tag](const Notification& n) { log.push_back(tag + ":" + n.name); });
    };
    const auto removed = record("A", "0");
    record("A", "1");
    record("", "all");
    record("B", "2");
    center.removeObserver(removed);
    center.removeObserver(9999);
    center.post({"A", nullptr, std::nullopt});
    center.post({"C", nullptr, std::nullopt});
    EXPECT_EQ(log, (Log{"1:A", "all:A", "all:C"}));

    NotificationCenter::ObserverId victim = 0;
    NotificationCenter::ObserverId self = 0;
    self = center.addObserver("B", [&](const Notification& n) {
        log.push_back("changer");
        record("B", "late");
        center.removeObserver(victim);
        center.removeObserver(self);
        center.post(n); // heard by "late" only: no endless recursion
    });
    victim = record("B", "victim");
    log.clear();
    center.post({"B", nullptr, std::nullopt});
    EXPECT_EQ(log, (Log{"all:B", "2:B", "changer", "all:B", "2:B", "late:B"}))
        << "the victim is skipped, late hears one post";
}

} // namespace
} // namespace vantelo_sounds
