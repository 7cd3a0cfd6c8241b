// SPDX-License-Identifier: BSD-3-Clause
//
// A small OpenFX host for tests: loads the built binary, describes, instantiates and renders as
// hosts do, and misbehaves on demand as some of them do. It spells the standard's strings itself,
// so that a wrong one in the plug-in's header shows.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "plugins/ofx/OfxApi.h"

namespace ofxTest {

using Value = std::variant<int, double, std::string, void*>;

/// A property set. Hosts know the standard's names only: others are refused when `open` is false.
struct Props {
  std::map<std::string, std::vector<Value>> values;
  std::vector<std::string> refused;  // names that were set and are not the standard's

  template <class T>
  Props& set(const std::string& name, T value, std::size_t index = 0) {
    auto& list = values[name];
    if (list.size() <= index) list.resize(index + 1);
    list[index] = value;
    return *this;
  }
  Props& setInts(const std::string& name, std::initializer_list<int> ints);
  Props& setDoubles(const std::string& name, std::initializer_list<double> doubles);
  /// The value, or a test failure and a default.
  int integer(const std::string& name, std::size_t index = 0) const;
  double real(const std::string& name, std::size_t index = 0) const;
  std::string text(const std::string& name, std::size_t index = 0) const;
  std::size_t count(const std::string& name) const;

  ofx::PropertySet handle() { return reinterpret_cast<ofx::PropertySet>(this); }
};

/// The standard's words for a depth in bytes and a number of channels.
const char* depthName(int depth, bool half = false);
const char* componentsName(int channels);

/// What a picture's memory looks like.
struct Layout {
  ofx::RectI bounds{};
  int channels = 4;
  int depth = 1;
  int padBytes = 0;         // after each row
  int shiftBytes = 0;       // before the first pixel: misaligns
  bool upsideDown = false;  // negative row bytes
  bool half = false;        // two-byte floats; depth is 2 then
};

/// A picture in memory with guard bytes all around, and its property set.
class HostImage {
 public:
  explicit HostImage(const Layout& layout);
  std::byte* pixel(int x, int y);
  const Layout& layout() const { return layout_; }
  double code(int x, int y, int channel);                 // 0..maximum, or a float
  void setCode(int x, int y, int channel, double value);  // of the depth's own codes
  /// Every byte that is not a pixel's, and pixels outside `window`, as they were made.
  bool isReal() const { return layout_.depth == 4 || layout_.half; }
  bool guardsHold(const ofx::RectI& window, const HostImage& before) const;
  Props props;

 private:
  Layout layout_;
  std::size_t rowBytes_;
  std::vector<std::byte> bytes_;
};

struct ParamState {
  std::string type;
  Props props;
  std::vector<Value> value;
  /// When set, the value over time; else `value` for all times.
  std::function<std::vector<Value>(double)> curve;
  std::size_t keys = 0;
};

struct ClipState {
  Props props;
  ofx::RectD region{};
  std::function<std::shared_ptr<HostImage>(double)> image;  // null: none at that time
};

/// A descriptor or an instance.
struct EffectState {
  Props props;
  std::map<std::string, ParamState> params;
  std::map<std::string, ClipState> clips;
  std::mutex lock;                 // over what follows
  std::vector<std::string> notes;  // messages, "type: text"
  std::map<Props*, std::shared_ptr<HostImage>> lent;
  int edits = 0;  // steps of the undo
  int imagesReleased = 0;
  bool noteStays = false;
  ofx::Effect handle() { return reinterpret_cast<ofx::Effect>(this); }
};

/// How the host behaves.
struct Manners {
  bool threadSuite = true;
  bool messageSuite = true;
  int messageVersion = 2;
  bool propertySuite = true, effectSuite = true, parameterSuite = true;
  unsigned int cpus = 3;
  unsigned int fewerThreads = 0;  // starts that many fewer than asked for
  bool threadsFail = false;
  int abortAfter = -1;  // calls of abort until it says yes
  bool forgetInstanceData = false;
  std::string lacksParamType;  // a kind of parameter that it does not have
  bool textChoices = false;    // choices are saved as identifiers
  std::string name;            // the host's own
  bool drawSuite = false;      // and the interact suite
};

/// The loaded binary and its one plug-in.
class OfxHost {
 public:
  explicit OfxHost(Manners manners = {});
  ~OfxHost();
  OfxHost(const OfxHost&) = delete;
  OfxHost& operator=(const OfxHost&) = delete;

  ofx::Plugin* plugin = nullptr;
  Manners manners;
  std::atomic<int> aborts = 0;
  std::atomic<int> threadsStarted = 0;

  /// Opens the binary, sets the host and loads; the status of the load action.
  ofx::Status load();
  void unload();
  bool unloaded() const;  // whether the binary has left the process

  ofx::Status call(const char* action, void* handle, Props* in = nullptr, Props* out = nullptr);
  /// Describe and describe in context; the described effect.
  std::unique_ptr<EffectState> describe(const std::string& context);
  /// An instance of it with default values and unconnected clips; not created in the plug-in yet.
  std::unique_ptr<EffectState> instantiate(const EffectState& descriptor,
                                           const std::string& context);
  ofx::Status create(EffectState& effect) { return call("OfxActionCreateInstance", &effect); }
  ofx::Status destroy(EffectState& effect) { return call("OfxActionDestroyInstance", &effect); }
  ofx::Status render(EffectState& effect, const ofx::RectI& window, double time = 0,
                     const char* field = "OfxFieldNone", double scale = 1);
  ofx::Status changed(EffectState& effect, const std::string& param,
                      const char* reason = "OfxChangeUserEdited");
  /// The lines and rectangles that an overlay drew, as their points.
  std::vector<std::vector<ofx::PointD>> drawn;

 private:
  void* binary_ = nullptr;
  Props hostProps_;
  ofx::Host host_{};
};

/// Connects a clip to one image at all times.
void connect(EffectState& effect, const std::string& clip, std::shared_ptr<HostImage> image,
             const char* premultiplication = "OfxImageAlphaUnPremultiplied");

}  // namespace ofxTest
