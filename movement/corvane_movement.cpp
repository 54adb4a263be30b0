// SPDX-License-Identifier: MIT
#include "movement/corvane_movement.h"

#include <algorithm>

namespace {

// The end-to-end regions print with up to 80 nozzles fewer than the whole range; the first move
// feeds as much more, so that the page's first row comes under the nozzles that are left.
constexpr std::int32_t kE2ENozzles = 80;

// How far beyond its end the bottom zone still takes a whole advance, in position units.
constexpr std::uint32_t kBOPZoneTolerance = 6;

// The mode factor of modes that keep the step between two moves odd inside the bottom zone too.
constexpr std::uint16_t kBOPAdjustedModeFactor = 2;

constexpr std::uint16_t kBeforeFirstMove = 0xFFFF;

constexpr std::uint16_t kPastZoneMove = 1;

// The entry of a repeating pattern; no pattern is a pattern of 0.
template <std::size_t N>
std::uint16_t PatternEntry(const std::array<std::uint32_t, N>& pattern, std::uint8_t length,
                           std::uint16_t index) {
  return length == 0 ? 0 : static_cast<std::uint16_t>(pattern[index % length]);
}

// Copies what fits and returns how much that is.
template <typename Source, typename Target, std::size_t N>
std::uint8_t CopyClamped(const Source* entries, std::uint8_t count, std::array<Target, N>& target) {
  const std::size_t fitting = std::min<std::size_t>(count, N);
  for (std::size_t i = 0; i < fitting; ++i) target[i] = static_cast<Target>(entries[i]);
  return static_cast<std::uint8_t>(fitting);
}

void CopyLimits(const unsigned short* limits, std::array<std::uint16_t, 2>& target) {
  std::copy_n(limits, target.size(), target.begin());
}

}  // namespace

CorvaneMovement::CorvaneMovement(const CorvaneMovement& other) = default;
CorvaneMovement& CorvaneMovement::operator=(const CorvaneMovement& other) = default;
CorvaneMovement::~CorvaneMovement() = default;

void CorvaneMovement::InitializeMovement(unsigned long* const pattern, unsigned char patternLength,
                                         unsigned short modeFactor, unsigned short* const minNozzle,
                                         unsigned short* const maxNozzle) {
  m_bE2EFirstMove = 0;
  m_nModeFactor = modeFactor;
  m_nMovesThisPage = kBeforeFirstMove;
  m_nMovesSinceLastSkip = kBeforeFirstMove;
  m_nMovePatternLength = CopyClamped(pattern, patternLength, m_aMovePattern);
  CopyLimits(minNozzle, m_aMinNozzle);
  CopyLimits(maxNozzle, m_aMaxNozzle);
}

void CorvaneMovement::InitializeMovement(unsigned long* const, unsigned char,
                                         tagBinaryCMYKDescriptor) {}

void CorvaneMovement::InitializeBOPMovement(unsigned short* const bopMoves,
                                            unsigned char bopMoveCount, unsigned long,
                                            unsigned char, unsigned long bopStart,
                                            unsigned long bopZone) {
  m_nBOPZone = static_cast<std::uint32_t>(bopZone);
  m_nBOPMoveCount = CopyClamped(bopMoves, bopMoveCount, m_aBOPMoves);
  m_nBOPStart = static_cast<std::uint32_t>(bopStart);
}

void CorvaneMovement::InitializeTOPMovement(unsigned long, unsigned char, unsigned short* const,
                                            unsigned short* const, unsigned char,
                                            unsigned short* const) {}
void CorvaneMovement::InitializeTOPMovement(unsigned short, unsigned long) {}
void CorvaneMovement::InitializeMidMovement(unsigned long, unsigned char, unsigned short* const,
                                            unsigned short* const, unsigned char,
                                            unsigned short* const) {}
void CorvaneMovement::InitializeStayMovement(unsigned long, unsigned char, unsigned short* const,
                                             unsigned short* const, unsigned char,
                                             unsigned short* const) {}
void CorvaneMovement::InitializeTransitionMovement(unsigned long, unsigned char,
                                                   unsigned short* const, unsigned short* const,
                                                   unsigned char, unsigned short* const) {}
void CorvaneMovement::InitializeFinalMovement(unsigned long, unsigned char, unsigned short* const,
                                              unsigned short* const, unsigned char,
                                              unsigned short* const) {}

void CorvaneMovement::InitializeE2EMovement(unsigned long limit1, unsigned long limit2,
                                            unsigned long limit3, unsigned long,
                                            unsigned short* const e2eMinNozzle,
                                            unsigned short* const e2eMaxNozzle,
                                            unsigned char e2eMoveCount,
                                            unsigned short* const e2eMoves) {
  m_bE2EFirstMove = 1;
  CopyLimits(e2eMinNozzle, m_aE2EMinNozzle);
  CopyLimits(e2eMaxNozzle, m_aE2EMaxNozzle);
  m_nE2EMoveCount = CopyClamped(e2eMoves, e2eMoveCount, m_aE2EMoves);
  m_nE2ELimit1 = static_cast<std::uint32_t>(limit1);
  m_nE2ELimit2 = static_cast<std::uint32_t>(limit2);
  m_nE2ELimit3 = static_cast<std::uint32_t>(limit3);
}

void CorvaneMovement::ResetPrinter() { m_nMovesThisPage = kBeforeFirstMove; }

unsigned short CorvaneMovement::GetVerticalMovement(long position) {
  ++m_nMovesThisPage;
  ++m_nMovesSinceLastSkip;
  const std::uint16_t move = PatternMove();
  const auto at = static_cast<std::uint32_t>(position);

  if (at + 2u * move < m_nBOPStart || m_nBOPZone == 0 || static_cast<std::int32_t>(at) <= 0) {
    m_nLastMove = move;
  } else if (at + move < m_nBOPStart) {
    m_nLastMove = BOP2MovesFromZone(position, move, move);
  } else if (at < m_nBOPStart) {
    m_nLastMove = BOP1MoveFromZone(position, move, move);
  } else if (at + m_aBOPMoves[0] <= m_nBOPZone + kBOPZoneTolerance) {
    m_nLastMove = BOPInZone(move, move);
  } else {
    m_nLastMove = kPastZoneMove;
  }
  return m_nLastMove;
}

unsigned short CorvaneMovement::GetVerticalMovementE2E(long position) {
  ++m_nMovesThisPage;
  const std::uint16_t e2eMove = E2EMove();
  const std::uint16_t move = PatternMove();
  const std::uint32_t e2eTarget = static_cast<std::uint32_t>(position) + e2eMove;
  const std::uint32_t target = static_cast<std::uint32_t>(position) + move;
  const bool hasRegions = m_nBOPZone != 0;

  if (hasRegions && e2eTarget < m_nE2ELimit1) {
    UseE2ELimits();
    m_nMaxNozzleOffset = 0;
    m_nLastMove = e2eMove;
    if (m_bE2EFirstMove != 0) {
      m_bE2EFirstMove = 0;
      m_nLastMove = static_cast<std::uint16_t>(m_nModeFactor * kE2ENozzles + e2eMove);
    }
  } else if (hasRegions && e2eTarget < m_nE2ELimit2) {
    UseE2ELimits();
    RaiseMaxNozzleOffset(NozzlesOf(e2eMove));
    m_nMaxNozzleOffset = std::min(m_nMaxNozzleOffset, kE2ENozzles);
    m_nLastMove = e2eMove;
  } else if (hasRegions && m_nE2ELimit2 <= target && target < m_nE2ELimit3) {
    UseNormalLimits();
    m_nMaxNozzleOffset = 0;
    m_nLastMove = move;
  } else {
    UseNormalLimits();
    RaiseMaxNozzleOffset(NozzlesOf(e2eMove) - NozzlesOf(move));
    const bool narrowest = m_nMaxNozzleOffset < -kE2ENozzles;
    if (narrowest) m_nMaxNozzleOffset = -kE2ENozzles;
    m_nLastMove = narrowest ? e2eMove : move;
  }
  return m_nLastMove;
}

unsigned short CorvaneMovement::GetMovesSinceLastSkip() { return m_nMovesSinceLastSkip; }

unsigned short CorvaneMovement::GetMaxNozzle(tagZRXCartridgeLocationType location) {
  return static_cast<std::uint16_t>(m_pMaxNozzle[location] +
                                    static_cast<std::uint32_t>(m_nMaxNozzleOffset));
}

unsigned short CorvaneMovement::GetMaxNozzle() { return m_pMaxNozzle[0]; }

unsigned short CorvaneMovement::GetMinNozzle(tagZRXCartridgeLocationType location) {
  return m_pMinNozzle[location];
}

unsigned short CorvaneMovement::GetMinNozzle() { return m_pMinNozzle[0]; }

unsigned short CorvaneMovement::GetMovesThisPage() { return m_nMovesThisPage; }

void CorvaneMovement::TestInvariant(char*, int) {}

// Brings a proposed move to the parity of the pattern's move and, unless the mode has factor 0,
// keeps half the distance of this move and the last one odd.
unsigned short CorvaneMovement::AdjustMovement(unsigned short move, unsigned short proposed) {
  if ((proposed ^ move) & 1) ++proposed;
  if (m_nModeFactor == 0) return proposed;
  const int half = (m_nLastMove + proposed) / 2;
  if (half % 2 != 0) return proposed;
  return static_cast<std::uint16_t>(proposed + 2 <= move ? proposed + 2 : proposed - 2);
}

// Splits the distance to the zone over two moves, none shorter than the advance inside it.
unsigned short CorvaneMovement::BOP2MovesFromZone(long position, unsigned short move,
                                                  unsigned short) {
  const std::uint32_t distance = m_nBOPStart - static_cast<std::uint32_t>(position);
  const auto proposed = static_cast<std::uint16_t>(distance >> 1);
  return AdjustMovement(move, std::max(proposed, m_aBOPMoves[0]));
}

unsigned short CorvaneMovement::BOP1MoveFromZone(long position, unsigned short move,
                                                 unsigned short) {
  const auto proposed =
      static_cast<std::uint16_t>(m_nBOPStart - static_cast<std::uint32_t>(position));
  return AdjustMovement(move, std::max(proposed, m_aBOPMoves[0]));
}

unsigned short CorvaneMovement::BOPInZone(unsigned short, unsigned short) {
  const std::uint16_t move = m_aBOPMoves[0];
  const int half = (m_nLastMove + move) / 2;
  const bool adjust = m_nModeFactor == kBOPAdjustedModeFactor && half % 2 == 0;
  return static_cast<std::uint16_t>(adjust ? move - 2 : move);
}

std::uint16_t CorvaneMovement::PatternMove() const {
  return PatternEntry(m_aMovePattern, m_nMovePatternLength, m_nMovesThisPage);
}

std::uint16_t CorvaneMovement::E2EMove() const {
  return PatternEntry(m_aE2EMoves, m_nE2EMoveCount, m_nMovesThisPage);
}

// How many nozzles a move is long, rounded up. A mode factor of 0 divides as 1.
std::uint16_t CorvaneMovement::NozzlesOf(std::uint16_t move) const {
  const std::int32_t mode = std::max<std::int32_t>(m_nModeFactor, 1);
  return static_cast<std::uint16_t>((move + mode - 1) / mode);
}

// The last region has no upper bound, so a long sequence may wrap.
void CorvaneMovement::RaiseMaxNozzleOffset(std::int32_t nozzles) {
  m_nMaxNozzleOffset = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_nMaxNozzleOffset) +
                                                 static_cast<std::uint32_t>(nozzles));
}
