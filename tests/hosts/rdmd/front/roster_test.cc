// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/roster.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/front/connection.h"
#include "hosts/rdmd/front/moments.h"

using namespace rdm;

namespace {

using namespace std::chrono_literals;
using rdmd::Connection;
using rdmd::Roster;
using support::at;
using support::client;

/// A roster of connections that are only identities: nothing behind their pointers is used.
class Rosters : public ::testing::Test {
 protected:
  struct Member {
    std::shared_ptr<int> identity = std::make_shared<int>(0);
    std::shared_ptr<Connection> connection{identity, reinterpret_cast<Connection *>(identity.get())};
    Roster::Entry entry;
  };

  ~Rosters() override {
    for (Member &member : members_) roster_.remove(member.entry);
    EXPECT_TRUE(roster_.empty());
    EXPECT_EQ(roster_.counts().served + roster_.counts().turned_away, 0U);
    EXPECT_EQ(roster_.take_waiting(), nullptr);
  }

  Member &admit(int number, bool turned_away = false) {
    Member &member = members_.emplace_back();
    roster_.admit(member.entry, member.connection, client(number), turned_away);
    return member;
  }
  Member &waiting(int number, std::chrono::milliseconds since) {
    Member &member = admit(number);
    roster_.set_waiting(member.entry, at(since));
    return member;
  }

  Roster roster_;
  std::list<Member> members_;
};

TEST_F(Rosters, TheLongestWaitingConnectionMakesWayFirst) {
  const Member &second = waiting(1, 20ms), &first = waiting(2, 10ms), &third = waiting(3, 30ms);
  admit(4);
  EXPECT_EQ(roster_.take_waiting(), first.connection);
  EXPECT_EQ(roster_.take_waiting(), second.connection);
  EXPECT_EQ(roster_.take_waiting(), third.connection);
  EXPECT_EQ(roster_.take_waiting(), nullptr);
}

TEST_F(Rosters, ConnectionsOfTheClientWithMostConnectionsMakeWayFirst) {
  const Member &alone = waiting(1, 1ms);
  const Member &later = waiting(2, 30ms), &earlier = waiting(2, 20ms);
  admit(2);
  // The client has three connections even when none of them waits.
  EXPECT_EQ(roster_.take_waiting(), earlier.connection);
  EXPECT_EQ(roster_.take_waiting(), later.connection);
  EXPECT_EQ(roster_.take_waiting(), alone.connection);
}

TEST_F(Rosters, TheOrderFollowsTheNumbersOfConnections) {
  Member &one = waiting(1, 1ms), &other = waiting(2, 2ms);
  Member &more = admit(2);
  roster_.remove(more.entry);
  EXPECT_EQ(roster_.take_waiting(), one.connection);
  roster_.set_waiting(one.entry, at(1ms));
  admit(2);
  EXPECT_EQ(roster_.take_waiting(), other.connection);
}

TEST_F(Rosters, ABusyConnectionDoesNotMakeWay) {
  Member &first = waiting(1, 1ms), &second = waiting(1, 2ms), &third = waiting(1, 3ms);
  roster_.set_busy(second.entry);
  roster_.set_busy(second.entry);
  EXPECT_EQ(roster_.take_waiting(), first.connection);
  roster_.set_busy(third.entry);
  EXPECT_EQ(roster_.take_waiting(), nullptr);
  roster_.set_waiting(second.entry, at(5ms));
  roster_.set_waiting(first.entry, at(4ms));
  EXPECT_EQ(roster_.take_waiting(), first.connection);
}

TEST_F(Rosters, OneClientCanMakeWayForItself) {
  waiting(1, 1ms);
  waiting(1, 2ms);
  const Member &own = waiting(2, 3ms);
  EXPECT_EQ(roster_.take_waiting(client(2)), own.connection);
  EXPECT_EQ(roster_.take_waiting(client(2)), nullptr);
  EXPECT_EQ(roster_.take_waiting(client(3)), nullptr);
}

TEST_F(Rosters, AConnectionThatIsBeingDestroyedIsPassedOver) {
  Member &gone = waiting(1, 1ms);
  const Member &there = waiting(1, 2ms);
  gone.connection.reset();
  gone.identity.reset();
  EXPECT_EQ(roster_.take_waiting(), there.connection);
  EXPECT_EQ(roster_.all().size(), 1U);
}

TEST_F(Rosters, CountConnectionsInAllAndOfEachClient) {
  admit(1);
  Member &moved = admit(1);
  admit(2, true);
  EXPECT_EQ(roster_.counts().served, 2U);
  EXPECT_EQ(roster_.counts().turned_away, 1U);
  EXPECT_EQ(roster_.counts(client(1)).served, 2U);
  EXPECT_EQ(roster_.counts(client(2)).turned_away, 1U);
  EXPECT_EQ(roster_.counts(client(3)).served, 0U);
  roster_.assign(moved.entry, client(3));
  EXPECT_EQ(roster_.counts(client(1)).served, 1U);
  EXPECT_EQ(roster_.counts(client(3)).served, 1U);
  roster_.turn_away(moved.entry);
  roster_.turn_away(moved.entry);
  EXPECT_EQ(roster_.counts(client(3)).served, 0U);
  EXPECT_EQ(roster_.counts(client(3)).turned_away, 1U);
  EXPECT_EQ(roster_.counts().turned_away, 2U);
}

TEST_F(Rosters, AnAssignedConnectionWaitsNoLonger) {
  Member &member = waiting(1, 1ms);
  roster_.assign(member.entry, client(1));
  roster_.assign(member.entry, client(2));
  EXPECT_EQ(roster_.take_waiting(), nullptr);
  roster_.set_waiting(member.entry, at(2ms));
  EXPECT_EQ(roster_.take_waiting(client(2)), member.connection);
}

TEST_F(Rosters, IgnoreAConnectionThatWasNeverAdmitted) {
  Roster::Entry entry;
  roster_.set_waiting(entry, at(1ms));
  roster_.set_busy(entry);
  roster_.assign(entry, client(1));
  roster_.turn_away(entry);
  roster_.remove(entry);
  EXPECT_TRUE(roster_.empty());
}

}  // namespace
