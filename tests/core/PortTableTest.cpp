// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "core/Fakes.h"
#include "core/PortTable.h"

namespace {

std::shared_ptr<FakePort> PortNamed(const std::string& name) {
  auto port = std::make_shared<FakePort>();
  port->portName = name;
  return port;
}

TEST(PortTableTest, StoresAPortUnderTheNameThatItReports) {
  PortTable table;
  const auto port = PortNamed("A");
  table.Store(port);
  EXPECT_EQ(port, table.Find("A"));
  EXPECT_EQ(nullptr, table.Find("B"));
}

TEST(PortTableTest, ReleasesThePortThatHadTheName) {
  PortTable table;
  auto first = PortNamed("A");
  const std::weak_ptr<FakePort> watched = first;
  table.Store(std::move(first));
  table.Store(PortNamed("A"));
  EXPECT_TRUE(watched.expired());
}

TEST(PortTableTest, AnIdentityOfAnUnknownNameLeavesAnEmptyEntryThatIsNoPort) {
  PortTable table;
  EXPECT_FALSE(table.IdentityOf("A").has_value());
  EXPECT_EQ(nullptr, table.Find("A"));
  table.Remove("A");
  table.Clear();
}

TEST(PortTableTest, RemoveFirstReleasesOnePortUntilThereIsNone) {
  PortTable table;
  table.Store(PortNamed("B"));
  table.Store(PortNamed("A"));
  EXPECT_TRUE(table.RemoveFirst());
  EXPECT_EQ(nullptr, table.Find("A"));
  EXPECT_NE(nullptr, table.Find("B"));
  EXPECT_TRUE(table.RemoveFirst());
  EXPECT_FALSE(table.RemoveFirst());
}

TEST(PortTableTest, ClearReleasesAllPorts) {
  PortTable table;
  auto port = PortNamed("A");
  const std::weak_ptr<FakePort> watched = port;
  table.Store(std::move(port));
  table.Clear();
  EXPECT_TRUE(watched.expired());
}

}  // namespace
