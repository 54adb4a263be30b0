// SPDX-License-Identifier: MIT
#include "plugin/factories.h"

#include "color/color_inline.h"
#include "dotmanagement/dot_management.h"
#include "halftone/halftone_module.h"
#include "movement/corvane_movement.h"
#include "plugin/frame/named_creation.h"

namespace {

using corvane::CreateNamed;

const char* const kColorInlineNames[] = {"EColorInline", nullptr};
const char* const kHalftoneNames[] = {"EHalftoneModule", nullptr};
const char* const kMovementNames[] = {"CorvaneMovement", nullptr};
const char* const kDotManagementNames[] = {"EDotManagement", nullptr};

extern FACTORY::ColorInlineCorvaneFactory colorInlineFactory;
extern FACTORY::HalftoneCorvaneFactory halftoneFactory;
extern FACTORY::MovementCorvaneFactory movementFactory;
extern FACTORY::DotManagementCorvaneFactory dotManagementFactory;

ZCOM::Factory* factoryList[] = {&colorInlineFactory, &halftoneFactory, &movementFactory,
                                &dotManagementFactory, nullptr};

// The list holds only addresses, so the plug-in factory may stand before the factories.
ZCOM::PluginFactory pluginFactory(factoryList);
FACTORY::ColorInlineCorvaneFactory colorInlineFactory;
FACTORY::HalftoneCorvaneFactory halftoneFactory;
FACTORY::MovementCorvaneFactory movementFactory;
FACTORY::DotManagementCorvaneFactory dotManagementFactory;

}  // namespace

namespace FACTORY {

ColorInlineCorvaneFactory::ColorInlineCorvaneFactory(const ColorInlineCorvaneFactory&) = default;
ColorInlineCorvaneFactory& ColorInlineCorvaneFactory::operator=(const ColorInlineCorvaneFactory&) =
    default;
ZCOM::EObject* ColorInlineCorvaneFactory::CreateElement(char* name) {
  return CreateNamed<EColorInline>(kColorInlineNames, name);
}

HalftoneCorvaneFactory::HalftoneCorvaneFactory(const HalftoneCorvaneFactory&) = default;
HalftoneCorvaneFactory& HalftoneCorvaneFactory::operator=(const HalftoneCorvaneFactory&) = default;
ZCOM::EObject* HalftoneCorvaneFactory::CreateElement(char* name) {
  return CreateNamed<EHalftoneModule>(kHalftoneNames, name);
}

MovementCorvaneFactory::MovementCorvaneFactory(const MovementCorvaneFactory&) = default;
MovementCorvaneFactory& MovementCorvaneFactory::operator=(const MovementCorvaneFactory&) = default;
void* MovementCorvaneFactory::CreateObject(char* name) {
  return CreateNamed<CorvaneMovement>(kMovementNames, name);
}

DotManagementCorvaneFactory::DotManagementCorvaneFactory(const DotManagementCorvaneFactory&) =
    default;
DotManagementCorvaneFactory& DotManagementCorvaneFactory::operator=(
    const DotManagementCorvaneFactory&) = default;
ZCOM::EObject* DotManagementCorvaneFactory::CreateElement(char* name) {
  return CreateNamed<ECorvaneDotManagement>(kDotManagementNames, name);
}

}  // namespace FACTORY

ZCOM::PluginFactory* GetFactory() { return &pluginFactory; }
