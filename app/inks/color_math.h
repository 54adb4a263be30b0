// SPDX-License-Identifier: MIT
//
// The colour spaces that tables and previews are computed in.
//
// Everything is relative to a D50 white, as in a printer profile; display colours (sRGB) are
// adapted to it with the Bradford transform. Reflectances of inks on paper are kept in the three
// linear channels of a wide-gamut RGB space ("bands", the primaries of ROMM RGB): every printable
// colour is positive there, and each of the three inks absorbs mainly in one of them, so that their
// densities nearly add.
#pragma once

#include <array>
#include <cstdint>

namespace corvane {

using Triple = std::array<double, 3>;

Triple LinearFromSrgb(const Triple& srgb);    // 0..1 encoded -> linear light
Triple SrgbFromLinear(const Triple& linear);  // linear light, clipped to 0..1 -> encoded

// A channel of linear light as it is encoded in 8 bits, from a table.
std::uint8_t SrgbByte(double linear);

Triple BandsFromLinearSrgb(const Triple& linear);
Triple LinearSrgbFromBands(const Triple& bands);

// XYZ with the white at Y = 1; Lab of the D50 white.
Triple XyzFromBands(const Triple& bands);
Triple BandsFromXyz(const Triple& xyz);
Triple LabFromXyz(const Triple& xyz);
Triple XyzFromLab(const Triple& lab);
Triple LabFromBands(const Triple& bands);
Triple BandsFromLab(const Triple& lab);

// How Lab changes at a colour with a small change of its bands.
Triple LabSlope(const Triple& bandSlope, const Triple& xyz);

// The colour difference CIEDE2000 with unit weights.
double DeltaE2000(const Triple& lab1, const Triple& lab2);

// OKLab, whose hues stay constant where Lab's blues turn purple: the space of gamut mapping.
Triple OklabFromLinearSrgb(const Triple& linear);
Triple LinearSrgbFromOklab(const Triple& oklab);

}  // namespace corvane
