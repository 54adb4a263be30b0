// SPDX-License-Identifier: MIT
//
// The plug-in's four factories, one name each, and the list that the plug-in factory serves.
#pragma once

#include "host/framework.h"
#include "plugin/frame/export.h"
#include "plugin/get_factory.h"

namespace FACTORY {

// Serves "EColorInline".
class CORVANE_API ColorInlineCorvaneFactory final : public ZCOM::LibraryFactory {
 public:
  constexpr ColorInlineCorvaneFactory() = default;
  ColorInlineCorvaneFactory(const ColorInlineCorvaneFactory&);
  ColorInlineCorvaneFactory& operator=(const ColorInlineCorvaneFactory&);
  ZCOM::EObject* CreateElement(char* name) override;
};

// Serves "EHalftoneModule".
class CORVANE_API HalftoneCorvaneFactory final : public ZCOM::LibraryFactory {
 public:
  constexpr HalftoneCorvaneFactory() = default;
  HalftoneCorvaneFactory(const HalftoneCorvaneFactory&);
  HalftoneCorvaneFactory& operator=(const HalftoneCorvaneFactory&);
  ZCOM::EObject* CreateElement(char* name) override;
};

// Serves "CorvaneMovement": a `CorvaneMovement*`, to be used as a `Movement*`.
class CORVANE_API MovementCorvaneFactory final : public ZCOM::LibraryFactory {
 public:
  constexpr MovementCorvaneFactory() = default;
  MovementCorvaneFactory(const MovementCorvaneFactory&);
  MovementCorvaneFactory& operator=(const MovementCorvaneFactory&);
  void* CreateObject(char* name) override;
};

// Serves "EDotManagement".
class CORVANE_API DotManagementCorvaneFactory final : public ZCOM::LibraryFactory {
 public:
  constexpr DotManagementCorvaneFactory() = default;
  DotManagementCorvaneFactory(const DotManagementCorvaneFactory&);
  DotManagementCorvaneFactory& operator=(const DotManagementCorvaneFactory&);
  ZCOM::EObject* CreateElement(char* name) override;
};

}  // namespace FACTORY
