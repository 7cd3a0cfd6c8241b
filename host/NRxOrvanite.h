// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer as a node: four image inputs, 34 parameter plugs, one engine. Evaluating the output
// image hands every parameter to the engine and builds its tables; filling the output buffer keys
// the foreground's pixels in place on all threads. The engine is reached through its flat
// interface only.
//
// Read NRxOrvanite.cpp for what the node is made of, Evaluation.cpp for what it decides,
// TileWorker.cpp for what happens to pixels.
#pragma once

#include <string_view>

#include "engine/orvanite.h"
#include "platform/NRiNadic.h"

class NRxOrvanite : public NRiNadic {
 public:
  NRxOrvanite();
  ~NRxOrvanite() override;

  const NRiName& getClassName() const override { return thisClassName; }
  NRiNode* create() const override { return new NRxOrvanite; }
  int notify(NRiPlug* plug) override;
  int eval(NRiPlug* plug) override;
  int serialize(NRiFile& file, int flags) override;
  std::string problem() const override;

  static const NRiName thisClassName;  // "Orvanite"
  static const NRiName composite;      // "composite": the output mode that is compared by identity

 protected:
  void fillOutputBuffer() override;

  enum Input { kFg, kBg, kHold, kGarbage };

  /// What is decided for one of the mattes.
  struct Matte {
    int active = 0;    // switched on and connected
    char channel = 0;  // upper-case first letter of the channel's name; 'A' when not active
    /// Its element of an alpha, blue, green, red pixel; a letter that names none means alpha.
    int element() const { return channel == 'R' ? 3 : channel == 'G' ? 2 : channel == 'B' ? 1 : 0; }
  };

  bool connected(Input input) const;
  /// Engine view of the output mode; sets the engine's background colour for the flat ones.
  int getKeyView();
  void refreshImage();
  void evalChannels(NRiPlug* plug);
  void evalBackground(NRiPlug* plug);
  void evalImage(NRiPlug* plug);
  void evalDomain(NRiPlug* plug);
  void evalDepth(NRiPlug* plug);
  int matteRequest(const Matte& matte, Input input);
  std::string tableProblem() const;
  std::string matteProblem(const Matte& matte, Input input, NRiPlug& channel) const;
  template <class T>
  void keyBackground(int depth, const NRiBPixel (&pixels)[mostInputs]);

  QMXOrvaniteTable* engine_ = nullptr;
  int view_ = 0;
  Matte hold_;
  Matte garbage_;
  int lutFailed_ = 0;     // the last table build failed: nothing is rendered
  int tables_ = 0;        // what that build returned
  bool refused_ = false;  // the engine refused a part of what was rendered last
  NRiBPixel bgPixel_;     // of the output

  // Parameters by channel (red, green, blue) or tonal band (shadow, midtone, highlight).
  NRiPlug *banner_, *version_, *output_;
  NRiPlug *screen_[3], *screenRange_, *bias_[3], *balance_[3], *gain_[3], *midTonesAt_;
  NRiPlug *replace_[3], *exposure_[3], *gamma_[3], *saturation_, *colourspace_;
  NRiPlug *useHold_, *holdChannel_, *useGarbage_, *garbageChannel_, *bgColor_, *clipMode_;
};
