// SPDX-License-Identifier: BSD-3-Clause
//
// The parameter table itself. Ranges are what a person may enter: they keep values finite and lie
// well outside what pictures hold; the engine conditions them further where its arithmetic needs
// it.
#include "keyer/Parameters.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace orvanite {
namespace {

constexpr Choice outputs[] = {
    {"composite", "Composite",
     "the keyed foreground over the background picture (black without one)"},
    {"compOnBlack", "Over black", "the keyed foreground over black"},
    {"compOnReplace", "Over replace colour", "the keyed foreground over the replace colour"},
    {"compOnColour", "Over flat colour", "the keyed foreground over the flat background colour"},
    {"unpremultiplied", "Foreground",
     "the cleaned foreground, not multiplied by the matte, with the matte in alpha"},
    {"status", "Status",
     "black: all screen; blue: all foreground; olive to green: between, greener as the matte "
     "rises; "
     "redder where the hold-out matte keeps"},
    {"matte", "Matte", "the matte in all four channels"},
};

constexpr Choice encodings[] = {
    {"linear", "Linear", "values are linear light"},
    {"log", "Log", "values are printing densities, as scanned film stores them"},
    {"video", "Video", "values are gamma-encoded video"},
};

constexpr Choice estimates[] = {
    {"off", "Nothing", "nothing is estimated"},
    {"codes", "Estimates, codes mix", "keyed beside estimates; the codes themselves mix at edges"},
    {"video", "Estimates, video mixes", "keyed beside estimates in video encoding"},
    {"light", "Estimates, light mixes",
     "keyed beside estimates; codes are decoded to light for the key"},
    {"log", "Estimates, densities mix", "keyed beside estimates in log encoding"},
};

constexpr Choice spillReplacements[] = {
    {"nothing", "Nothing", "what is taken is gone: the colour gets a little darker"},
    {"grey", "Grey", "grey of the same light"},
    {"brightness", "Its own colour", "more of the colour that is left, so that it stays as bright"},
    {"background", "Background's light",
     "the colour of the background around the pixel (nothing where there is no background "
     "picture)"},
};

constexpr ParameterType number = ParameterType::number;
constexpr ParameterType triple = ParameterType::triple;
constexpr ParameterType colour = ParameterType::colour;
constexpr DefaultRule fixed = DefaultRule::fixed;
constexpr DefaultRule byScreen = DefaultRule::balanceOfScreen;
constexpr float colourTop = 64;

constexpr Group outputGroup{"output", "Output"};
constexpr Group screenGroup{"screen", "Screen"};
constexpr Group balanceGroup{"balanceAndGain", "Balance and gain"};
constexpr Group spillGroup{"spill", "Spill"};
constexpr Group foregroundGroup{"foregroundGrade", "Foreground grade"};
constexpr Group backgroundGroup{"backgroundGrade", "Background grade"};
constexpr Group matteGroup{"mattes", "Mattes"};
constexpr Group finishGroup{"finish", "Finish"};

constexpr Meaning viewing{Stage::view, SidePicture::none, false};
constexpr Meaning ofScreen{Stage::key, SidePicture::none, true};
constexpr Meaning grading{Stage::grade, SidePicture::none, false};
constexpr Meaning gradingBehind{Stage::grade, SidePicture::background, false};
constexpr Meaning ofHoldOut{Stage::key, SidePicture::holdOut, false};
constexpr Meaning ofGarbage{Stage::key, SidePicture::garbage, false};
constexpr Meaning ofCleanPlate{Stage::key, SidePicture::cleanPlate, false};
constexpr Meaning estimating{Stage::estimate, SidePicture::none, true};
constexpr Meaning refining{Stage::finish, SidePicture::none, true};
constexpr Meaning finishing{Stage::finish, SidePicture::none, false};
constexpr Meaning finishingBehind{Stage::finish, SidePicture::background, false};

// clang-format off
constexpr Parameter table[] = {
    {"output", "Output", outputGroup, ParameterType::choice, "", 0, 6, 0, 6, {0, 0, 0}, "", outputs,
     {"output", "", ""}, fixed, viewing, "What the result shows."},
    {"colourspace", "Encoding", outputGroup, ParameterType::choice, "", 0, 2, 0, 2, {0, 0, 0}, "", encodings,
     {"colourspace", "", ""}, fixed, viewing, "How the pictures and all colours below are encoded."},
    {"backgroundColour", "Flat background", outputGroup, colour, "colour", 0, 1, 0, colourTop, {0, 0, 0}, "", {},
     {}, fixed, viewing, "Colour behind the foreground in the output compOnColour."},

    {"screen", "Screen colour", screenGroup, colour, "colour", 0, 1, 0, colourTop, {0, 0, 0.9f}, "", {},
     {"rScreen", "gScreen", "bScreen"}, fixed, ofScreen,
     "Colour of the screen as the plate shows it; pick a bright, even part near the subject."},
    {"screenRange", "Screen range", screenGroup, number, "distance in colour", 0, 0.5f, 0, 1, {0, 0, 0}, "", {},
     {"screenRange", "", ""}, fixed, ofScreen,
     "How far from the screen colour, towards grey, a colour may lie and still be all screen. Clears "
     "an uneven screen and fills the subject by the same amount."},
    {"fgBias", "Foreground bias", screenGroup, colour, "colour", 0, 1, 0.001f, colourTop, {0.9f, 0.9f, 0.9f}, "", {},
     {"rFgBias", "gFgBias", "bFgBias"}, fixed, ofScreen,
     "What a neutral grey or white of the subject looks like in the plate: tinted light is taken out "
     "of the key by it."},

    {"shadowBalance", "Shadow balance", balanceGroup, number, "weight", 0, 1, 0, 1, {0.9f, 0, 0}, "", {},
     {"shadowBalance", "", ""}, byScreen, ofScreen,
     "How the key weighs the screen's two lesser channels in dark tones: 0 all on the weakest, 1 all "
     "on the middle one."},
    {"midtoneBalance", "Midtone balance", balanceGroup, number, "weight", 0, 1, 0, 1, {0.9f, 0, 0}, "", {},
     {"midtoneBalance", "", ""}, byScreen, ofScreen,
     "How the key weighs the screen's two lesser channels in middle tones: 0 all on the weakest, 1 all "
     "on the middle one."},
    {"highlightBalance", "Highlight balance", balanceGroup, number, "weight", 0, 1, 0, 1, {0.9f, 0, 0}, "", {},
     {"highlightBalance", "", ""}, byScreen, ofScreen,
     "How the key weighs the screen's two lesser channels in bright tones: 0 all on the weakest, 1 all "
     "on the middle one."},
    {"shadowGain", "Shadow gain", balanceGroup, number, "weight", -0.5f, 0.5f, -1, 1, {0, 0, 0}, "", {},
     {"shadowGain", "", ""}, fixed, ofScreen,
     "Added to the weight of the screen's strongest channel in dark tones: above 0 keys more out, "
     "below 0 keeps more."},
    {"midtoneGain", "Midtone gain", balanceGroup, number, "weight", -0.5f, 0.5f, -1, 1, {0, 0, 0}, "", {},
     {"midtoneGain", "", ""}, fixed, ofScreen,
     "Added to the weight of the screen's strongest channel in middle tones: above 0 keys more out, "
     "below 0 keeps more."},
    {"highlightGain", "Highlight gain", balanceGroup, number, "weight", -0.5f, 0.5f, -1, 1, {0, 0, 0}, "", {},
     {"highlightGain", "", ""}, fixed, ofScreen,
     "Added to the weight of the screen's strongest channel in bright tones: above 0 keys more out, "
     "below 0 keeps more."},
    {"midTonesAt", "Midtones at", balanceGroup, triple, "value", 0, 1, 0, colourTop, {0.5f, 0.5f, 0.5f}, "", {},
     {"midTonesAt", "", ""}, fixed, ofScreen, "Value at which the middle tones lie."},

    {"replace", "Replace colour", spillGroup, colour, "colour", 0, 1, 0, colourTop, {0.5f, 0.5f, 0.5f}, "", {},
     {"rReplace", "gReplace", "bReplace"}, fixed, ofScreen,
     "Put back where the hold-out matte keeps what the key took away; also the backdrop of the output "
     "compOnReplace."},

    {"exposure", "Exposure", foregroundGroup, triple, "factor", 0, 4, 0, 1000, {1, 1, 1}, "", {},
     {"rExposure", "gExposure", "bExposure"}, fixed, grading, "Multiplies the foreground's linear light."},
    {"gamma", "Gamma", foregroundGroup, triple, "exponent", 0.2f, 5, 0.01f, 100, {1, 1, 1}, "", {},
     {"rGamma", "gGamma", "bGamma"}, fixed, grading, "Raises the foreground's linear light to 1/gamma: above 1 brightens."},
    {"offset", "Offset", foregroundGroup, triple, "linear light", -0.5f, 0.5f, -colourTop, colourTop, {0, 0, 0}, "", {},
     {}, fixed, grading, "Added to the foreground's linear light."},
    {"saturation", "Saturation", foregroundGroup, number, "factor", 0, 3, 0, 3, {1, 0, 0}, "", {},
     {"saturation", "", ""}, fixed, grading, "Saturation of the foreground: 0 is grey, 1 leaves it."},

    {"bgExposure", "Exposure", backgroundGroup, triple, "factor", 0, 4, 0, 1000, {1, 1, 1}, "", {},
     {}, fixed, gradingBehind, "Multiplies the background's linear light."},
    {"bgGamma", "Gamma", backgroundGroup, triple, "exponent", 0.2f, 5, 0.01f, 100, {1, 1, 1}, "", {},
     {}, fixed, gradingBehind, "Raises the background's linear light to 1/gamma: above 1 brightens."},
    {"bgOffset", "Offset", backgroundGroup, triple, "linear light", -0.5f, 0.5f, -colourTop, colourTop, {0, 0, 0}, "", {},
     {}, fixed, gradingBehind, "Added to the background's linear light."},
    {"bgSaturation", "Saturation", backgroundGroup, number, "factor", 0, 3, 0, 3, {1, 0, 0}, "", {},
     {}, fixed, gradingBehind, "Saturation of the background: 0 is grey, 1 leaves it."},

    {"useHoldOutMatte", "Use hold-out matte", matteGroup, ParameterType::toggle, "", 0, 1, 0, 1, {1, 0, 0}, "", {},
     {"useHoldOutMatte", "", ""}, fixed, ofHoldOut, "Where the hold-out matte is white the foreground is kept whole."},
    {"holdOutChannel", "Hold-out channel", matteGroup, ParameterType::channel, "", 0, 0, 0, 0, {0, 0, 0}, "A", {},
     {"holdOutChannel", "", ""}, fixed, ofHoldOut, "Channel of the hold-out picture that is the matte."},
    {"useGarbageMatte", "Use garbage matte", matteGroup, ParameterType::toggle, "", 0, 1, 0, 1, {1, 0, 0}, "", {},
     {"useGarbageMatte", "", ""}, fixed, ofGarbage, "Where the garbage matte is white the foreground is cut away."},
    {"garbageChannel", "Garbage channel", matteGroup, ParameterType::channel, "", 0, 0, 0, 0, {0, 0, 0}, "A", {},
     {"garbageChannel", "", ""}, fixed, ofGarbage, "Channel of the garbage picture that is the matte."},
    {"useReference", "Use clean plate", matteGroup, ParameterType::toggle, "", 0, 1, 0, 1, {1, 0, 0}, "", {},
     {}, fixed, ofCleanPlate,
     "Where a clean plate is given, each pixel has the screen colour found there (8- and 16-bit pictures)."},

    {"estimate", "Key beside", matteGroup, ParameterType::choice, "", 0, 4, 0, 4, {0, 0, 0}, "", estimates,
     {}, fixed, estimating,
     "Estimates from the plate itself: its clean plate, a matte of what surely is screen and one of what surely is "
     "subject. Auto sets it."},

    {"matteBlack", "Clip black", finishGroup, number, "matte", 0, 1, 0, 1, {0, 0, 0}, "", {},
     {}, fixed, finishing, "What the matte has up to here becomes clear: takes grain and haze off the screen."},
    {"matteWhite", "Clip white", finishGroup, number, "matte", 0, 1, 0, 1, {1, 0, 0}, "", {},
     {}, fixed, finishing, "What the matte has from here on becomes solid: closes a thin subject."},
    {"matteGamma", "Matte gamma", finishGroup, number, "exponent", 0.2f, 5, 0.1f, 10, {1, 0, 0}, "", {},
     {}, fixed, finishing,
     "Bends the matte between the clips, to the power of 1/gamma: above 1 edges get fuller, below 1 thinner."},
    {"refine", "Refine edge", finishGroup, number, "part", 0, 1, 0, 1, {0, 0, 0}, "", {},
     {}, fixed, refining,
     "How much soft pixels take the matte that their colours have around them: finer, calmer edges. Auto sets it."},
    {"islands", "Islands", finishGroup, number, "pixels across", 0, 40, 0, 256, {0, 0, 0}, "", {},
     {}, fixed, finishing,
     "Clears what stands alone in the matte and is at most this wide and high: markers, dust. Longer hairs stay."},
    {"pinholes", "Pinholes", finishGroup, number, "pixels across", 0, 40, 0, 256, {0, 0, 0}, "", {},
     {}, fixed, finishing,
     "Fills what is not solid, lies within the solid and is at most this wide and high: glints of the screen."},
    {"shrink", "Shrink or grow", finishGroup, number, "pixels", -5, 5, -32, 32, {0, 0, 0}, "", {},
     {}, fixed, finishing, "Moves the matte's edge inwards by parts of a pixel, outwards where below 0."},
    {"soften", "Soften", finishGroup, number, "pixels", 0, 10, 0, 64, {0, 0, 0}, "", {},
     {}, fixed, finishing, "Blurs the matte over this many pixels each way."},
    {"edgeColour", "Edge colour", finishGroup, number, "part", 0, 1, 0, 1, {0, 0, 0}, "", {},
     {}, fixed, finishing,
     "How much soft pixels take the colour of the solid ones near them: takes dark and coloured lines off edges."},
    {"edgeReach", "Edge reach", finishGroup, number, "pixels", 1, 32, 1, 64, {6, 0, 0}, "", {},
     {}, fixed, finishing, "How far around a soft pixel solid ones give it their colour."},
    {"spill", "Spill removal", finishGroup, number, "part", 0, 1, 0, 1, {0, 0, 0}, "", {},
     {}, fixed, finishing,
     "How much of the screen's light is taken out of what is kept: what its strongest channel has above the limit."},
    {"spillLimit", "Spill limit", finishGroup, number, "part", 0, 1, 0, 1, {0.5f, 0, 0}, "", {},
     {}, fixed, finishing,
     "What the screen's strongest channel may have: 0 the mean of the other two, 1 as much as the greater of them."},
    {"spillReplace", "Spill becomes", finishGroup, ParameterType::choice, "", 0, 3, 0, 3, {0, 0, 0}, "", spillReplacements,
     {}, fixed, finishing, "What takes the place of the spill."},
    {"lightWrap", "Light wrap", finishGroup, number, "part", 0, 1, 0, 1, {0, 0, 0}, "", {},
     {}, fixed, finishingBehind, "How much light of the background picture falls around the subject's edge."},
    {"wrapReach", "Wrap reach", finishGroup, number, "pixels", 1, 32, 1, 64, {10, 0, 0}, "", {},
     {}, fixed, finishingBehind,
     "How far the background's light reaches in, and over how far around it is gathered."},
};
// clang-format on

// Letters inserted, removed or changed to turn one word into the other, whatever their case.
std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
      const std::size_t changed = diagonal + (same ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
    }
  }
  return row[b.size()];
}

}  // namespace

std::span<const Parameter> parameters() { return table; }

const Parameter* findParameter(std::string_view name) {
  const auto* found = std::find_if(std::begin(table), std::end(table),
                                   [name](const Parameter& entry) { return entry.name == name; });
  return found == std::end(table) ? nullptr : found;
}

int valuesOf(ParameterType type) {
  switch (type) {
    case ParameterType::triple:
    case ParameterType::colour:
      return 3;
    case ParameterType::channel:
      return 0;
    default:
      return 1;
  }
}

std::string_view nearest(std::string_view word, std::span<const std::string_view> candidates) {
  if (word.size() > 64) return {};
  // A third of the letters may be wrong; more than that is another word.
  std::size_t best = std::max<std::size_t>(1, word.size() / 3) + 1;
  std::string_view found;
  for (std::string_view candidate : candidates) {
    const std::size_t distance = editDistance(word, candidate);
    if (distance < best) {
      best = distance;
      found = candidate;
    }
  }
  return found;
}

}  // namespace orvanite
