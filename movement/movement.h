// SPDX-License-Identifier: MIT
//
// The paper feed as the host sees it: for each swath of a page, how far to advance the paper and
// which nozzles to use.
//
// The host gets an object by name from the plug-in's factory and drives it in this order:
//
//   1. `InitializeMovement`; it restarts the counters and takes back a pending end-to-end start.
//   2. `InitializeBOPMovement` (bottom of page).
//   3. `InitializeE2EMovement`, for an end-to-end page only.
//   4. For each swath `GetVerticalMovement`, or `GetVerticalMovementE2E` and then the nozzle limits
//      of each cartridge location.
//
// Units: positions, advances, zones and limits are in a unit of the host's choice that the object
// never converts; `modeFactor` is the number of such units from one nozzle to the next. Positions
// and advances wrap at 32 and 16 bits.
//
// Errors: none is reported. Lengths beyond the arrays below are clamped to them; pointers must not
// be null where something is read through them, nozzle-limit arrays have two entries, and a
// cartridge location is one of the two below.
//
// Ownership and threads: the host owns the object and deletes it through the virtual destructor;
// arrays are copied during the call. One thread at a time.
#pragma once

#include <array>
#include <cstdint>

#include "plugin/frame/export.h"
#include "printmode/print_mode.h"

// Where a cartridge sits in the carriage: the index of its nozzle limits.
enum tagZRXCartridgeLocationType : std::int32_t {
  ZRXCartridgeLocationLeft = 0,
  ZRXCartridgeLocationRight = 1,
};

class CORVANE_API Movement {
 public:
  Movement() { UseNormalLimits(); }
  // A copy's limits in force are its own arrays.
  Movement(const Movement& other);
  Movement& operator=(const Movement& other);
  virtual ~Movement() = default;

  // The advance to the next swath from `position`, in normal and bottom-of-page printing.
  virtual unsigned short GetVerticalMovement(long position) = 0;
  // The same on an end-to-end page; also chooses the nozzle limits in force.
  virtual unsigned short GetVerticalMovementE2E(long position) = 0;

  // Starts a sequence of swaths with a repeating pattern of 1 to 64 advances (their low 16 bits
  // count) and the normal nozzle limits per cartridge location.
  virtual void InitializeMovement(unsigned long* const pattern, unsigned char patternLength,
                                  unsigned short modeFactor, unsigned short* const minNozzle,
                                  unsigned short* const maxNozzle) = 0;
  virtual void InitializeMovement(unsigned long* const pattern, unsigned char patternLength,
                                  tagBinaryCMYKDescriptor descriptor) = 0;

  // The bottom-of-page zone from `bopStart` to `bopZone` (0: there is none, and no end-to-end
  // regions either) and the advance in it, the first of up to 64 entries.
  virtual void InitializeBOPMovement(unsigned short* const bopMoves, unsigned char bopMoveCount,
                                     unsigned long, unsigned char, unsigned long bopStart,
                                     unsigned long bopZone) = 0;

  virtual void InitializeTOPMovement(unsigned long, unsigned char, unsigned short* const,
                                     unsigned short* const, unsigned char,
                                     unsigned short* const) = 0;
  virtual void InitializeTOPMovement(unsigned short, unsigned long) = 0;
  virtual void InitializeMidMovement(unsigned long, unsigned char, unsigned short* const,
                                     unsigned short* const, unsigned char,
                                     unsigned short* const) = 0;
  virtual void InitializeStayMovement(unsigned long, unsigned char, unsigned short* const,
                                      unsigned short* const, unsigned char,
                                      unsigned short* const) = 0;
  virtual void InitializeTransitionMovement(unsigned long, unsigned char, unsigned short* const,
                                            unsigned short* const, unsigned char,
                                            unsigned short* const) = 0;
  virtual void InitializeFinalMovement(unsigned long, unsigned char, unsigned short* const,
                                       unsigned short* const, unsigned char,
                                       unsigned short* const) = 0;

  // The ends of the first, the transition and the middle region, the nozzle limits per cartridge
  // location of the first two, and a repeating pattern of 1 to 16 advances.
  virtual void InitializeE2EMovement(unsigned long limit1, unsigned long limit2,
                                     unsigned long limit3, unsigned long,
                                     unsigned short* const e2eMinNozzle,
                                     unsigned short* const e2eMaxNozzle, unsigned char e2eMoveCount,
                                     unsigned short* const e2eMoves) = 0;

  // Restarts the page's counter, and with it the patterns.
  virtual void ResetPrinter() = 0;

  virtual unsigned short GetMovesSinceLastSkip() = 0;
  // The nozzle limits in force. The form without a location is that of location 0 and leaves out
  // the offset of the end-to-end regions.
  virtual unsigned short GetMaxNozzle(tagZRXCartridgeLocationType location) = 0;
  virtual unsigned short GetMaxNozzle() = 0;
  virtual unsigned short GetMinNozzle(tagZRXCartridgeLocationType location) = 0;
  virtual unsigned short GetMinNozzle() = 0;
  virtual unsigned short GetMovesThisPage() = 0;

 private:
  virtual void TestInvariant(char*, int) = 0;

 protected:
  using NozzleLimits = std::array<std::uint16_t, 2>;  // per cartridge location

  void UseNormalLimits();
  void UseE2ELimits();

  std::uint16_t m_nLastMove = 0;
  // Both counters are 0xFFFF before the first move of a sequence, which makes them 0.
  std::uint16_t m_nMovesThisPage = 0;
  std::uint16_t m_nMovesSinceLastSkip = 0;
  std::array<std::uint32_t, 64> m_aMovePattern{};
  std::uint32_t m_nBOPZone = 0;
  std::array<std::uint16_t, 64> m_aBOPMoves{};  // only the first is used
  std::uint32_t m_nBOPStart = 0;
  std::uint8_t m_nMovePatternLength = 0;
  std::uint8_t m_nBOPMoveCount = 0;
  std::uint16_t m_nModeFactor = 0;
  std::uint16_t* m_pMinNozzle = nullptr;  // the limits in force
  std::uint16_t* m_pMaxNozzle = nullptr;
  NozzleLimits m_aMinNozzle{};
  NozzleLimits m_aMaxNozzle{};
  std::uint32_t m_nE2ELimit1 = 0;
  std::uint32_t m_nE2ELimit2 = 0;
  std::uint32_t m_nE2ELimit3 = 0;
  NozzleLimits m_aE2EMinNozzle{};
  NozzleLimits m_aE2EMaxNozzle{};
  std::uint8_t m_nE2EMoveCount = 0;
  std::array<std::uint32_t, 16> m_aE2EMoves{};
  std::int32_t m_nMaxNozzleOffset = 0;
  std::uint32_t m_bE2EFirstMove = 0;
};
