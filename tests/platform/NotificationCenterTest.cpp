// The notification center: delivery by name, synchronously, to the observers registered when the
// post starts; observers that change the registrations while a post is under way.
#include <cstdint>
#include <string>
#include <vantelo_sounds/platform/NotificationCenter.hpp>
#include <vector>

#include <gtest/gtest.h>

using vantelo_sounds::Notification;
using vantelo_sounds::NotificationCenter;

namespace {

class NotificationCenterTest : public ::testing::Test {
protected:
    NotificationCenter center;
    std::vector<std::string> log;

    NotificationCenter::ObserverId record(const std::string& name, const std::string& tag) {
        return center.addObserver(
            name, [this, tag](const Notification& n) { log.push_back(tag + ":" + n.name); });
    }
};

TEST_F(NotificationCenterTest, DeliversByNameInRegistrationOrderAndEmptyNameTakesAll) {
    record("A", "1");
    record("", "all");
    record("B", "2");
    record("A", "3");
    center.post({"A", nullptr, std::nullopt});
    center.post({"C", nullptr, std::nullopt});
    EXPECT_EQ(log, (std::vector<std::string>{"1:A", "all:A", "3:A", "all:C"}));
}

TEST_F(NotificationCenterTest, RemovedObserversHearNothingAndUnknownIdsAreIgnored) {
    const auto id = record("A", "1");
    record("A", "2");
    center.removeObserver(id);
    center.removeObserver(id);
    center.removeObserver(9999);
    center.post({"A", nullptr, std::nullopt});
    EXPECT_EQ(log, (std::vector<std::string>{"2:A"}));
}

TEST_F(NotificationCenterTest, ObserversAddedDuringAPostWaitForTheNextOne) {
    center.addObserver("A", [this](const Notification&) {
        log.push_back("adder");
        record("A", "late");
    });
    center.post({"A", nullptr, std::nullopt});
    EXPECT_EQ(log, (std::vector<std::string>{"adder"}));
    log.clear();
    center.post({"A", nullptr, std::nullopt});
    EXPECT_EQ(log, (std::vector<std::string>{"adder", "late:A"}));
}

TEST_F(NotificationCenterTest, AnObserverRemovedByAnEarlierOneIsSkipped) {
    NotificationCenter::ObserverId victim = 0;
    center.addObserver("A", [&](const Notification&) {
        log.push_back("remover");
        center.removeObserver(victim);
    });
    victim = record("A", "victim");
    center.post({"A", nullptr, std::nullopt});
    EXPECT_EQ(log, (std::vector<std::string>{"remover"}));
}

TEST_F(NotificationCenterTest, AnObserverMayRemoveItselfAndPostAgain) {
    NotificationCenter::ObserverId self = 0;
    int calls = 0;
    self = center.addObserver("A", [&](const Notification& n) {
        ++calls;
        center.removeObserver(self);
        center.post(n); // no longer registered: no endless recursion
    });
    center.post({"A", nullptr, std::nullopt});
    EXPECT_EQ(calls, 1);
}

TEST_F(NotificationCenterTest, SenderAndUserInfoArriveUnchanged) {
    int sender = 0;
    std::optional<std::uint64_t> type;
    center.addObserver("A", [&](const Notification& n) {
        EXPECT_EQ(n.object, &sender);
        ASSERT_TRUE(n.userInfo.has_value());
        type = std::any_cast<std::uint64_t>(n.userInfo->at("type"));
    });
    center.post({"A", &sender, std::map<std::string, std::any>{{"type", std::uint64_t{7}}}});
    EXPECT_EQ(type, 7u);
}

TEST(NotificationCenterDefaultTest, ResetDropsEveryObserverOfTheDefaultCenter) {
    int calls = 0;
    NotificationCenter::defaultCenter().addObserver("", [&](const Notification&) { ++calls; });
    NotificationCenter::resetDefaultForTesting();
    NotificationCenter::defaultCenter().post({"A", nullptr, std::nullopt});
    EXPECT_EQ(calls, 0);
}

} // namespace
