// SPDX-License-Identifier: MIT
#include "plugin/factories.h"

#include <gtest/gtest.h>

#include <memory>

#include "movement/movement.h"
#include "plugin/frame/named_creation.h"

namespace corvane {
namespace {

TEST(PluginFactory, IsOneObjectThatServesEveryNameExactly) {
  ZCOM::PluginFactory* factory = GetFactory();
  EXPECT_EQ(factory, GetFactory());
  for (std::string name : {"EColorInline", "EHalftoneModule", "EDotManagement"}) {
    const std::unique_ptr<ZCOM::EObject> first(factory->CreateElement(name.data()));
    const std::unique_ptr<ZCOM::EObject> second(factory->CreateElement(name.data()));
    ASSERT_TRUE(first && second) << name;
    EXPECT_NE(first, second);
    EXPECT_EQ(factory->CreateObject(name.data()), nullptr);
    EXPECT_EQ(factory->CreateQObject(name.data()), nullptr);
  }
  std::string movement = "CorvaneMovement";
  const std::unique_ptr<Movement> object(
      static_cast<Movement*>(factory->CreateObject(movement.data())));
  EXPECT_TRUE(object);
  for (std::string name : {"", "ecolorinline", "EColorInline ", "CorvaneMovement", "EColor"}) {
    EXPECT_EQ(factory->CreateElement(name.data()), nullptr) << name;
  }
}

TEST(PluginFactory, EachFactoryServesItsOwnNameAlone) {
  FACTORY::ColorInlineCorvaneFactory color;
  FACTORY::MovementCorvaneFactory movement;
  std::string halftone = "EHalftoneModule", object = "CorvaneMovement";
  EXPECT_EQ(color.CreateElement(halftone.data()), nullptr);
  EXPECT_EQ(movement.CreateElement(object.data()), nullptr);
}

TEST(NamedCreation, ServesTheFirstNameAndAnEmptyTableServesAll) {
  const char* const two[] = {"first", "second", nullptr};
  const char* const none[] = {nullptr};
  const auto creates = [](const char* const* names, const char* name) {
    return std::unique_ptr<int>(CreateNamed<int>(names, name)) != nullptr;
  };
  EXPECT_TRUE(creates(two, "first"));
  EXPECT_FALSE(creates(two, "second"));
  EXPECT_FALSE(creates(two, "third"));
  EXPECT_TRUE(creates(none, "anything"));
  EXPECT_TRUE(creates(none, ""));
}

}  // namespace
}  // namespace corvane
