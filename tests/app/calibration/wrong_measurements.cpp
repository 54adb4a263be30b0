// SPDX-License-Identifier: MIT
#include "tests/app/calibration/wrong_measurements.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "app/calibration/faults.h"
#include "app/support/failure.h"
#include "tests/app/calibration/simulated_printer.h"

namespace corvane::test {
namespace {

using Make = std::function<std::string(const Measurement&)>;
using Patches = std::vector<ReadPatch>;

std::string TextOf(const Measurement& measurement) {
  return CgatsText(MeasurementFile(measurement));
}

// Changes the file as a text.
Make Text(std::function<void(std::string&)> change) {
  return [change = std::move(change)](const Measurement& good) {
    std::string text = TextOf(good);
    change(text);
    return text;
  };
}

// Changes the table before it is written.
Make Table(std::function<void(CgatsTable&)> change) {
  return [change = std::move(change)](const Measurement& good) {
    Cgats cgats = MeasurementFile(good);
    change(cgats.tables[0]);
    return CgatsText(cgats);
  };
}

// Changes what was read from the patches.
Make Colours(std::function<void(Patches&)> change) {
  return [change = std::move(change)](const Measurement& good) {
    Measurement changed = good;
    change(changed.patches);
    return TextOf(changed);
  };
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
  text.replace(text.find(from), from.size(), to);
}

std::string& Value(CgatsTable& table, std::size_t row, const char* field) {
  return table.rows[row].values[table.Field(field).value()];
}

void SetKeyword(CgatsTable& table, const char* key, const char* value) {
  std::erase_if(table.keywords, [&](const auto& entry) { return entry.first == key; });
  table.keywords.emplace_back(key, value);
}

void RemoveFields(CgatsTable& table, const std::string& prefix) {
  for (std::size_t i = table.fields.size(); i-- > 0;) {
    if (!table.fields[i].starts_with(prefix)) continue;
    table.fields.erase(table.fields.begin() + static_cast<std::ptrdiff_t>(i));
    for (CgatsRow& row : table.rows) {
      row.values.erase(row.values.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
}

void AddSpectra(CgatsTable& table) {
  for (int nm = 380; nm <= 730; nm += 10) {
    table.fields.push_back("SPEC_" + std::to_string(nm));
    for (CgatsRow& row : table.rows) row.values.emplace_back("50");
  }
}

Patches& SwapColours(Patches& patches, std::size_t a, std::size_t b) {
  std::swap(patches[a].measured.lab, patches[b].measured.lab);
  return patches;
}

constexpr std::size_t kSteps = 22;

std::size_t OfStrip(std::size_t strip, std::size_t step) { return strip * kSteps + step; }

template <typename Change>
Make EachLab(Change change) {
  return Colours([change](Patches& patches) {
    for (std::size_t i = 0; i < patches.size(); ++i) change(i, patches[i].measured.lab);
  });
}

// The first patch of a group that an ink takes part in.
std::size_t FindPatch(const Patches& patches, PatchGroup group, Ink ink, std::uint8_t least) {
  const auto found = std::find_if(patches.begin(), patches.end(), [&](const ReadPatch& patch) {
    return patch.measured.group == group && patch.measured.levels[static_cast<int>(ink)] >= least;
  });
  return static_cast<std::size_t>(found - patches.begin());
}

std::vector<WrongMeasurement> TextsAlone() {
  return {
      {"nothing", [](const Measurement&) { return std::string(); }, "ends in line"},
      {"no text", [](const Measurement&) { return std::string("\x89PNG\0\0\1", 7); }, "no CGATS"},
      {"another text", [](const Measurement&) { return std::string("Dear reader,\nhello\n"); },
       "ends in line"},
      {"cut in a row", Text([](std::string& t) { t.resize(t.size() / 2); }), "ends in line"},
      {"cut after a row", Text([](std::string& t) { t.resize(t.find("\n300 ") + 1); }),
       "ends in line"},
      {"cut and closed", Text([](std::string& t) {
         t.resize(t.find("\n300 ") + 1);
         t += "END_DATA\n";
       }),
       "rows are announced"},
      {"no data", Text([](std::string& t) { t.resize(t.find("BEGIN_DATA\n")); }), "ends in line"},
      {"a value missing", Table([](CgatsTable& t) { t.rows[9].values.pop_back(); }), "values for"},
      {"a value too many", Table([](CgatsTable& t) { t.rows[9].values.emplace_back("1"); }),
       "more values"},
      {"a field twice", Table([](CgatsTable& t) { t.fields[3] = t.fields[4]; }), "twice"},
      {"fields without end", Text([](std::string& t) {
         std::string fields;
         for (int i = 0; i < 5000; ++i) fields += " F" + std::to_string(i);
         Replace(t, "END_DATA_FORMAT", fields + " END_DATA_FORMAT");
       }),
       "more than 4096 fields"},
      {"an open quotation", Text([](std::string& t) { Replace(t, "\"A3\"", "\"A3"); }),
       "quotation mark"},
      {"fields miscounted",
       Text([](std::string& t) { Replace(t, "NUMBER_OF_FIELDS ", "NUMBER_OF_FIELDS 1"); }),
       "fields are announced"},
      {"NaN", Table([](CgatsTable& t) { Value(t, 11, "XYZ_Y") = "nan"; }), "A12"},
      {"infinite", Table([](CgatsTable& t) { Value(t, 12, "XYZ_X") = "inf"; }), "A13"},
      {"no number", Table([](CgatsTable& t) { Value(t, 13, "XYZ_Z").assign(1, '?'); }), "A14"},
      {"a decimal comma", Table([](CgatsTable& t) { Value(t, 14, "XYZ_Z") = "12,3"; }), "A15"},
      {"ink below nothing", Table([](CgatsTable& t) { Value(t, 5, "CMYK_C") = "-3"; }), "A6"},
      {"ink above all", Table([](CgatsTable& t) { Value(t, 6, "CMYK_C") = "130"; }), "A7"},
      {"no sample numbers", Table([](CgatsTable& t) { RemoveFields(t, "SAMPLE_ID"); }),
       "SAMPLE_ID"},
      {"no colours", Table([](CgatsTable& t) { RemoveFields(t, "XYZ_"); }), "neither spectra"},
      {"Y missing", Table([](CgatsTable& t) { RemoveFields(t, "XYZ_Y"); }), "neither spectra"},
      {"no inks", Table([](CgatsTable& t) { RemoveFields(t, "CMYK_"); }), "ink amounts"},
      {"a number twice", Table([](CgatsTable& t) { Value(t, 8, "SAMPLE_ID").assign(1, '3'); }),
       "A9"},
      {"a number that is none", Table([](CgatsTable& t) { Value(t, 8, "SAMPLE_ID") = "3.5"; }),
       "SAMPLE_ID"},
      {"a wavelength missing", Table([](CgatsTable& t) {
         AddSpectra(t);
         RemoveFields(t, "SPEC_500");
       }),
       "510 nm follows on 490 nm"},
      {"spectra of other wavelengths than said", Table([](CgatsTable& t) {
         AddSpectra(t);
         SetKeyword(t, "SPECTRAL_START_NM", "400");
         SetKeyword(t, "SPECTRAL_END_NM", "730");
       }),
       "from 380 to 730 nm, the keywords say 400"},
      {"D65 said", Table([](CgatsTable& t) { SetKeyword(t, "ILLUMINANT", "D65"); }), "D50"},
      {"10 degrees said", Table([](CgatsTable& t) {
         SetKeyword(t, "MEASUREMENT_SOURCE", "Illumination=D50 ObserverAngle=10deg");
       }),
       "2 degrees"},
      {"10 degrees said behind D50", Table([](CgatsTable& t) {
         t.keywords.emplace_back("WEIGHTING_FUNCTION", "ILLUMINANT, D50");
         t.keywords.emplace_back("WEIGHTING_FUNCTION", "OBSERVER, 10 degree");
       }),
       "2 degrees"},
      {"10 said", Table([](CgatsTable& t) { SetKeyword(t, "OBSERVER_ANGLE", "10"); }), "2 degrees"},
      {"a medium that is none",
       Table([](CgatsTable& t) { SetKeyword(t, "CORVANE_MEDIA", "velvet"); }), "velvet"},
      {"a display", Table([](CgatsTable& t) { SetKeyword(t, "DEVICE_CLASS", "DISPLAY"); }),
       "DISPLAY"},
  };
}

std::vector<WrongMeasurement> OtherCharts() {
  return {
      {"a patch missing", Table([](CgatsTable& t) { t.rows.erase(t.rows.begin() + 40); }),
       "patch 41 "},
      {"half of the patches", Table([](CgatsTable& t) { t.rows.resize(t.rows.size() / 2); }),
       "is missing"},
      {"a patch too many", Table([](CgatsTable& t) {
         t.rows.push_back(t.rows.back());
         Value(t, t.rows.size() - 1, "SAMPLE_ID") = std::to_string(t.rows.size());
       }),
       "not of the chart"},
      {"other inks in a patch", Table([](CgatsTable& t) { Value(t, 30, "CMYK_M") = "47.0588"; }),
       "B9 says"},
      {"numbers of two patches swapped", Table([](CgatsTable& t) {
         std::swap(Value(t, 20, "SAMPLE_ID"), Value(t, 50, "SAMPLE_ID"));
       }),
       "says"},
      {"rows turned round, numbers not", Table([](CgatsTable& t) {
         for (std::size_t i = 0; i < t.rows.size(); ++i) {
           Value(t, t.rows.size() - 1 - i, "SAMPLE_ID") = std::to_string(i + 1);
         }
       }),
       "says"},
      {"the chart of another limit",
       Table([](CgatsTable& t) { SetKeyword(t, "TOTAL_INK_LIMIT", "200"); }), "says"},
      {"inks of other names", Table([](CgatsTable& t) {
         std::swap(t.fields[t.Field("CMYK_C").value()], t.fields[t.Field("CMYK_M").value()]);
       }),
       "says"},
  };
}

std::vector<WrongMeasurement> OtherWhites() {
  return {
      {"white at 1", EachLab([](std::size_t, Triple& lab) {
         Triple xyz = XyzFromLab(lab);
         for (double& value : xyz) value /= 100;
         lab = LabFromXyz(xyz);
       }),
       "Y = 100"},
      {"under D65", EachLab([](std::size_t, Triple& lab) {
         Triple xyz = XyzFromLab(lab);
         xyz[0] *= 0.9505 / 0.9642;
         xyz[2] *= 1.089 / 0.8249;
         lab = LabFromXyz(xyz);
       }),
       "D50"},
      {"one paper patch is none", Colours([](Patches& p) {
         p[FindPatch(p, PatchGroup::White, Ink::C, 0)].measured.lab[0] -= 6;
       }),
       "is paper and differs"},
      {"a drift",
       EachLab([](std::size_t i, Triple& lab) { lab[0] *= 1 - 0.00015 * static_cast<double>(i); }),
       ""},
      {"paper alone", EachLab([](std::size_t, Triple& lab) {
         lab = {95, 0, -3};
       }),
       ""},
      {"turned to its negative", EachLab([](std::size_t, Triple& lab) { lab[0] = 110 - lab[0]; }),
       "Y = 100"},
      {"an ink that does not print", Colours([](Patches& p) {
         for (ReadPatch& patch : p) {
           Contone levels = patch.measured.levels;
           levels[static_cast<int>(Ink::M)] = 0;
           if (levels == Contone{}) patch.measured.lab = {95, 0, -3};
         }
       }),
       "M 100 %"},
      {"inks in each other's place", Colours([](Patches& p) {
         for (ReadPatch& patch : p) std::swap(patch.measured.lab[1], patch.measured.lab[2]);
       }),
       "does not look like"},
  };
}

std::vector<WrongMeasurement> WrongReadings() {
  return {
      {"two patches swapped", Colours([](Patches& p) {
         SwapColours(p, FindPatch(p, PatchGroup::Ramp, Ink::C, 200),
                     FindPatch(p, PatchGroup::Ramp, Ink::Y, 200));
       }),
       "each other's colours"},
      {"held-back patches swapped", Colours([](Patches& p) {
         const std::size_t first = FindPatch(p, PatchGroup::HeldBack, Ink::M, 150);
         std::size_t other = first + 1;
         while (p[other].measured.group != PatchGroup::HeldBack ||
                DeltaE2000(p[other].measured.lab, p[first].measured.lab) < 20) {
           ++other;
         }
         SwapColours(p, first, other);
       }),
       "each other's colours"},
      {"a strip backwards", Colours([](Patches& p) {
         for (std::size_t i = 0; i < kSteps / 2; ++i) {
           SwapColours(p, OfStrip(2, i), OfStrip(2, kSteps - 1 - i));
         }
       }),
       "strip C was read backwards"},
      {"every strip backwards", Colours([](Patches& p) {
         for (std::size_t strip = 0; strip < p.size() / kSteps; ++strip) {
           for (std::size_t i = 0; i < kSteps / 2; ++i) {
             SwapColours(p, OfStrip(strip, i), OfStrip(strip, kSteps - 1 - i));
           }
         }
       }),
       ""},
      {"two strips swapped", Colours([](Patches& p) {
         for (std::size_t i = 0; i < kSteps; ++i) SwapColours(p, OfStrip(3, i), OfStrip(8, i));
       }),
       "strip D"},
      {"strips from the last to the first", Colours([](Patches& p) {
         const std::size_t strips = p.size() / kSteps;
         for (std::size_t strip = 0; strip < strips / 2; ++strip) {
           for (std::size_t i = 0; i < kSteps; ++i) {
             SwapColours(p, OfStrip(strip, i), OfStrip(strips - 1 - strip, i));
           }
         }
       }),
       ""},
      {"slipped by one patch", Colours([](Patches& p) {
         for (std::size_t i = p.size() - 1; i > 0; --i) p[i].measured.lab = p[i - 1].measured.lab;
       }),
       ""},
      {"slipped in a strip", Colours([](Patches& p) {
         for (std::size_t i = kSteps - 1; i > 0; --i) {
           p[OfStrip(5, i)].measured.lab = p[OfStrip(5, i - 1)].measured.lab;
         }
       }),
       ""},
      {"the same strip read twice", Colours([](Patches& p) {
         for (std::size_t i = 0; i < kSteps; ++i) {
           p[OfStrip(6, i)].measured.lab = p[OfStrip(5, i)].measured.lab;
         }
       }),
       ""},
      {"a streak along a strip", Colours([](Patches& p) {
         for (std::size_t i = 0; i < kSteps; ++i) {
           if (p[OfStrip(7, i)].measured.group != PatchGroup::White) {
             p[OfStrip(7, i)].measured.lab[0] -= 3;
           }
         }
       }),
       "strip H"},
      {"a streak across the strips", Colours([](Patches& p) {
         for (std::size_t strip = 0; strip < p.size() / kSteps; ++strip) {
           ReadPatch& patch = p[OfStrip(strip, 9)];
           if (patch.measured.group != PatchGroup::White) patch.measured.lab[0] -= 3;
         }
       }),
       "step 10"},
      {"one patch of another colour", Colours([](Patches& p) {
         p[FindPatch(p, PatchGroup::Spread, Ink::C, 100)].measured.lab = {70, 60, 60};
       }),
       "its inks give"},
      {"one held-back patch of another colour", Colours([](Patches& p) {
         p[FindPatch(p, PatchGroup::HeldBack, Ink::C, 100)].measured.lab = {70, 60, 60};
       }),
       "its inks give"},
      {"a solid that was read on paper", Colours([](Patches& p) {
         p[FindPatch(p, PatchGroup::Overprint, Ink::C, 255)].measured.lab = {95, 0, -4};
       }),
       "its inks give"},
      {"two charts mixed",
       [](const Measurement& good) {
         Measurement mixed = good;
         const Measurement other = MeasureChart(good.choice, 2, 0.3, 99);
         for (std::size_t i = 0; i < mixed.patches.size(); i += 2) {
           mixed.patches[i].measured.lab = other.patches[i].measured.lab;
         }
         return TextOf(mixed);
       },
       ""},
      {"the second half of another print",
       [](const Measurement& good) {
         Measurement mixed = good;
         const Measurement other = MeasureChart(good.choice, 3, 0.3, 99);
         for (std::size_t i = mixed.patches.size() / 2; i < mixed.patches.size(); ++i) {
           mixed.patches[i].measured.lab = other.patches[i].measured.lab;
         }
         return TextOf(mixed);
       },
       ""},
      {"colours in any order", Colours([](Patches& p) {
         for (std::size_t i = 0; i < p.size(); ++i) SwapColours(p, i, i * 131 % p.size());
       }),
       ""},
      {"noise of 12", EachLab([](std::size_t i, Triple& lab) {
         for (std::size_t k = 0; k < 3; ++k) {
           lab[k] += 12 * std::sin(static_cast<double>(i * (17 + k)) * 1.7);
         }
       }),
       ""},
  };
}

}  // namespace

const std::vector<WrongMeasurement>& WrongMeasurements() {
  static const std::vector<WrongMeasurement> all = [] {
    std::vector<WrongMeasurement> list = TextsAlone();
    for (auto* more : {&OtherCharts, &OtherWhites, &WrongReadings}) {
      for (WrongMeasurement& wrong : (*more)()) list.push_back(std::move(wrong));
    }
    return list;
  }();
  return all;
}

Measurement MeasureChart(const ChartChoice& choice, int printer, double noise, std::uint32_t seed) {
  const std::vector<ChartPatch> chart = PatchesOf(choice);
  const ChartLayout layout(ParsePaperSize("A4"), ChartReading::Strip, chart.size());
  Measurement measurement{choice, {}};
  for (const MeasuredPatch& patch : Measure(MakeSimulatedPrinter(printer), chart, noise, seed)) {
    const std::size_t i = measurement.patches.size();
    const PatchPlace place = layout.PlaceOf(i);
    measurement.patches.push_back(
        {layout.LocationOf(i), static_cast<int>(i) + 1, patch, place.strip, place.step});
  }
  return measurement;
}

std::string ErrorOf(const std::string& text) {
  try {
    const Measurement measurement = MeasurementOf(ParseCgats(text, "m.ti3"), "m.ti3", std::nullopt);
    CheckPaper(measurement, "m.ti3");
    std::vector<MeasuredPatch> measured;
    for (const ReadPatch& patch : measurement.patches) measured.push_back(patch.measured);
    const FitSettings settings{measurement.choice.inks, 2, measurement.choice.inkLimit};
    CheckAgainstFit(measurement, FitInks(measured, settings, DefaultInkData()), 2, "m.ti3");
    return {};
  } catch (const Failure& failure) {
    return failure.what();
  }
}

}  // namespace corvane::test
