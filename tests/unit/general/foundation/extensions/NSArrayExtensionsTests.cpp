#include <gtest/gtest.h>

#include <stdexcept>

#include "general/foundation/extensions/NSArrayExtensions.h"

using namespace foundation;

TEST(NSArrayExtensions, CollectsTheValuesAtAKeyPathInOrder) {
  const PropertyList array = PropertyList::Array{
      PropertyList::dictionary({{"a", PropertyList::dictionary({{"b", 1}})}}),
      PropertyList::dictionary({{"a", PropertyList::dictionary({{"b", "two"}})}}),
  };
  const auto values = NSArrayExtensions::objectsForKeyPath(array, "a.b");
  ASSERT_EQ(values.size(), 2U);
  EXPECT_EQ(values[0], PropertyList(1));
  EXPECT_EQ(values[1], PropertyList("two"));
}

TEST(NSArrayExtensions, AKeyAskedOfAnArrayGivesTheValuesOfItsElements) {
  const PropertyList inner =
      PropertyList::Array{PropertyList::dictionary({{"b", 1}}), PropertyList::dictionary({{"b", 2}})};
  const PropertyList array = PropertyList::Array{PropertyList::dictionary({{"a", inner}})};
  const auto values = NSArrayExtensions::objectsForKeyPath(array, "a.b");
  ASSERT_EQ(values.size(), 1U);
  EXPECT_EQ(values[0], PropertyList(PropertyList::Array{1, 2}));
}

TEST(NSArrayExtensions, AMissingValueRaises) {
  const PropertyList array = PropertyList::Array{PropertyList::dictionary({{"a", 1}}), PropertyList::dictionary()};
  EXPECT_THROW(static_cast<void>(NSArrayExtensions::objectsForKeyPath(array, "a")), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(NSArrayExtensions::objectsForKeyPath(array, "")), std::invalid_argument);
}

TEST(NSArrayExtensions, WhatIsNoArrayHasNoObjects) {
  EXPECT_TRUE(NSArrayExtensions::objectsForKeyPath(PropertyList(), "a").empty());
}
