// SPDX-License-Identifier: BSD-3-Clause
//
// The script functions of the application's own nodes.
#include "platform/nodes/NRiNodes.h"

#include <memory>
#include <stdexcept>

#include "platform/NRiClassName.h"
#include "platform/NRiCmplr.h"
#include "platform/NRiGlobals.h"
#include "platform/nodes/NRiConstant.h"
#include "platform/nodes/NRiFileIn.h"
#include "platform/nodes/NRiFileOut.h"

namespace {

constexpr const char* declarations = R"(
// A picture, a picture for each frame, or a movie.
extern image FileIn(
    string path,           // The file, or the folder of a sequence; in a name, ####, @@@@ and %04d
                           // stand for the frame's number.
    float frame = time,    // Which frame: time + 10 shows what is ten frames later.
    string fps = "",       // Of a movie: frames are held and dropped to this rate, such as
                           // "24000/1001"; "" for the movie's own.
    string matrix = "",    // Of a movie: "601", "709", "2020", "240M" or "fcc", whatever its tags
                           // say; "" for what they say.
    int deinterlace = 0,   // Of a movie: 1 makes whole frames from the fields of interlaced ones.
    string part = "",      // Of an OpenEXR file: its part, by name or counted from 0; "" for the
                           // one with plain R, G and B.
    string layer = "");    // Likewise: "beauty" reads beauty.R and so on.

// Writes a picture for each frame that is rendered, or a movie of them all, and passes it on.
extern image FileOut(
    image,                     // What to write.
    string path,               // The file, whose ending says the format; ####, @@@@ and %04d
                               // stand for the frame's number.
    string samples = "auto",   // How values are held: "uint8", "uint16", "half", "float", or "auto"
                               // for the picture's own.
    string alpha = "auto",     // "none" leaves it out, "premultiplied" multiplies the colours by it,
                               // as readers of OpenEXR expect; "auto" writes what the picture has.
    string codec = "",         // Of a movie: "prores4444", "ffv1", "vp9", "qtrle" and "png" hold
                               // alpha, "h264" and "hevc" do not; "" is the usual one for the
                               // ending.
    string fps = "",           // Of a movie: frames a second, such as "24000/1001"; "" for the
                               // plate's, else 24.
    string quality = "",       // Of a movie, as its codec counts; "" for the usual one.
    string bitrate = "",       // Of a movie, instead: bits a second, such as "800k" or "12M".
    string sound = "");        // Of a movie: a file whose sound begins with the plate's first
                               // frame, or "none"; "" for the plate's.

// One colour everywhere.
extern image Constant(
    int width = 720,       // Of the picture, in pixels.
    int height = 576,      // In lines.
    int bytes = 1,         // Of a channel: 1 and 2 are whole numbers, 4 is a float.
    float red = 0,         // 1 is white.
    float green = red,     // As red unless it is given.
    float blue = red,      // As red unless it is given.
    float alpha = 1);      // 0 is clear, 1 is solid.
)";

// A node on its way into the tree; deleted when something throws before it is there.
template <class Node>
Node* placed() {
  auto node = std::make_unique<Node>();
  node->setParent(NRiNode::getRoot());
  return node.release();
}

void set(NRiNode& node, const char* plug, const char* text) {
  node.getPlug(NRiName(plug))->set(text);
}

NRiIPlug* fileIn(const char* path, const char* frame, const char* fps, const char* matrix,
                 const char* deinterlace, const char* part, const char* layer) {
  auto* const node = placed<NRiFileIn>();
  set(*node, "path", path);
  set(*node, "frame", frame);
  set(*node, "fps", fps);
  set(*node, "matrix", matrix);
  set(*node, "deinterlace", deinterlace);
  set(*node, "part", part);
  set(*node, "layer", layer);
  return node->getOutput();
}

NRiIPlug* fileOut(NRiIPlug* image, const char* path, const char* samples, const char* alpha,
                  const char* codec, const char* fps, const char* quality, const char* bitrate,
                  const char* sound) {
  auto* const node = placed<NRiFileOut>();
  node->getInput(0)->connect(image);
  set(*node, "path", path);
  set(*node, "samples", samples);
  set(*node, "alpha", alpha);
  set(*node, "codec", codec);
  set(*node, "fps", fps);
  set(*node, "quality", quality);
  set(*node, "bitrate", bitrate);
  set(*node, "sound", sound);
  return node->getOutput();
}

NRiIPlug* constant(const char* width, const char* height, const char* bytes, const char* red,
                   const char* green, const char* blue, const char* alpha) {
  auto* const node = placed<NRiConstant>();
  set(*node, "width", width);
  set(*node, "height", height);
  set(*node, "bytes", bytes);
  set(*node, "red", red);
  set(*node, "green", green);
  set(*node, "blue", blue);
  set(*node, "alpha", alpha);
  return node->getOutput();
}

void bind(const char* name, void* address) {
  NRiScope::getGlobal()->function(NRiName(name))->address = address;
}

}  // namespace

void NRiNodes::declare() {
  static std::shared_ptr<NRiDeclaration>& compiled = *new std::shared_ptr<NRiDeclaration>;
  if (compiled) return;
  NRiCmplr compiler;
  NRiValue nothing;
  compiled = compiler.execute(NRiScope::getGlobal(), NRiType::null, nothing, NRiName(declarations),
                              NRiName("nodes"));
  if (!compiled) throw std::logic_error(compiler.errors().front());
  for (const char* name : {"FileIn", "FileOut", "Constant"}) {
    const bool monadic = name == std::string_view("FileOut");
    NRiClassName::registerClassName(NRiName(name), NRiName(monadic ? "NRiMonadic" : "NRiFx"));
  }
  bind("FileIn", reinterpret_cast<void*>(&fileIn));
  bind("FileOut", reinterpret_cast<void*>(&fileOut));
  bind("Constant", reinterpret_cast<void*>(&constant));
  NRiGlobals::setCurrentScript(NRiNode::getRoot());
}
