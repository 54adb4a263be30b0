// SPDX-License-Identifier: MIT
//
// The paper feed of this printhead.
//
// Position ->
//   normal     ... pattern ... | two moves away | one move away | bottom zone | past: 1
//                                           BOP start ^                      ^ BOP zone
//   end-to-end first | transition | middle | last
//              limit1^     limit2 ^        ^ limit3
//
// The normal rules judge the position before the move (and one and two moves on), the end-to-end
// rules the position that the move would lead to.
#pragma once

#include "movement/movement.h"

class CORVANE_API CorvaneMovement final : public Movement {
 public:
  CorvaneMovement() = default;
  CorvaneMovement(const CorvaneMovement& other);
  CorvaneMovement& operator=(const CorvaneMovement& other);
  ~CorvaneMovement() override;

  unsigned short GetVerticalMovement(long position) override;
  unsigned short GetVerticalMovementE2E(long position) override;

  void InitializeMovement(unsigned long* const pattern, unsigned char patternLength,
                          unsigned short modeFactor, unsigned short* const minNozzle,
                          unsigned short* const maxNozzle) override;
  void InitializeMovement(unsigned long* const, unsigned char, tagBinaryCMYKDescriptor) override;
  void InitializeBOPMovement(unsigned short* const bopMoves, unsigned char bopMoveCount,
                             unsigned long, unsigned char, unsigned long bopStart,
                             unsigned long bopZone) override;

  // This printhead has no use for these six.
  void InitializeTOPMovement(unsigned long, unsigned char, unsigned short* const,
                             unsigned short* const, unsigned char, unsigned short* const) override;
  void InitializeTOPMovement(unsigned short, unsigned long) override;
  void InitializeMidMovement(unsigned long, unsigned char, unsigned short* const,
                             unsigned short* const, unsigned char, unsigned short* const) override;
  void InitializeStayMovement(unsigned long, unsigned char, unsigned short* const,
                              unsigned short* const, unsigned char, unsigned short* const) override;
  void InitializeTransitionMovement(unsigned long, unsigned char, unsigned short* const,
                                    unsigned short* const, unsigned char,
                                    unsigned short* const) override;
  void InitializeFinalMovement(unsigned long, unsigned char, unsigned short* const,
                               unsigned short* const, unsigned char,
                               unsigned short* const) override;

  void InitializeE2EMovement(unsigned long limit1, unsigned long limit2, unsigned long limit3,
                             unsigned long, unsigned short* const e2eMinNozzle,
                             unsigned short* const e2eMaxNozzle, unsigned char e2eMoveCount,
                             unsigned short* const e2eMoves) override;

  void ResetPrinter() override;

  unsigned short GetMovesSinceLastSkip() override;
  unsigned short GetMaxNozzle(tagZRXCartridgeLocationType location) override;
  unsigned short GetMaxNozzle() override;
  unsigned short GetMinNozzle(tagZRXCartridgeLocationType location) override;
  unsigned short GetMinNozzle() override;
  unsigned short GetMovesThisPage() override;

 private:
  void TestInvariant(char*, int) override;

  unsigned short AdjustMovement(unsigned short move, unsigned short proposed);
  unsigned short BOP2MovesFromZone(long position, unsigned short move, unsigned short);
  unsigned short BOP1MoveFromZone(long position, unsigned short move, unsigned short);
  unsigned short BOPInZone(unsigned short move, unsigned short);

  std::uint16_t PatternMove() const;
  std::uint16_t E2EMove() const;
  std::uint16_t NozzlesOf(std::uint16_t move) const;
  void RaiseMaxNozzleOffset(std::int32_t nozzles);
};
