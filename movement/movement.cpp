// SPDX-License-Identifier: MIT
#include "movement/movement.h"

Movement::Movement(const Movement& other) { *this = other; }

Movement& Movement::operator=(const Movement& other) {
  m_nLastMove = other.m_nLastMove;
  m_nMovesThisPage = other.m_nMovesThisPage;
  m_nMovesSinceLastSkip = other.m_nMovesSinceLastSkip;
  m_aMovePattern = other.m_aMovePattern;
  m_nBOPZone = other.m_nBOPZone;
  m_aBOPMoves = other.m_aBOPMoves;
  m_nBOPStart = other.m_nBOPStart;
  m_nMovePatternLength = other.m_nMovePatternLength;
  m_nBOPMoveCount = other.m_nBOPMoveCount;
  m_nModeFactor = other.m_nModeFactor;
  m_aMinNozzle = other.m_aMinNozzle;
  m_aMaxNozzle = other.m_aMaxNozzle;
  m_nE2ELimit1 = other.m_nE2ELimit1;
  m_nE2ELimit2 = other.m_nE2ELimit2;
  m_nE2ELimit3 = other.m_nE2ELimit3;
  m_aE2EMinNozzle = other.m_aE2EMinNozzle;
  m_aE2EMaxNozzle = other.m_aE2EMaxNozzle;
  m_nE2EMoveCount = other.m_nE2EMoveCount;
  m_aE2EMoves = other.m_aE2EMoves;
  m_nMaxNozzleOffset = other.m_nMaxNozzleOffset;
  m_bE2EFirstMove = other.m_bE2EFirstMove;
  // The pointers are bound anew: the other object may be gone before this one.
  if (other.m_pMinNozzle == other.m_aE2EMinNozzle.data()) {
    UseE2ELimits();
  } else {
    UseNormalLimits();
  }
  return *this;
}

void Movement::UseNormalLimits() {
  m_pMinNozzle = m_aMinNozzle.data();
  m_pMaxNozzle = m_aMaxNozzle.data();
}

void Movement::UseE2ELimits() {
  m_pMinNozzle = m_aE2EMinNozzle.data();
  m_pMaxNozzle = m_aE2EMaxNozzle.data();
}
