// SPDX-License-Identifier: BSD-3-Clause
//
// The part of the OpenFX 1.5 image-effect interface that the plug-in uses: layouts of the
// structures that cross between host and plug-in, and the strings that name actions, properties
// and values. Written from the standard's reference manual, because no package carries it.
// Only layout and spelling are binding; the C++ names are ours. tests/plugins/OfxLayout.cpp holds
// sizes and offsets. This header includes nothing of ours and defines no function.
#pragma once

#include <cstddef>

namespace ofx {

/// What every call answers, in either direction.
using Status = int;
enum StatusCode : Status {
  ok = 0,
  failed = 1,              // it did not work and no other code says why
  fatal = 2,               // the caller must not go on
  unknown = 3,             // no object of that name
  missingHostFeature = 4,  // the plug-in cannot live on this host
  unsupported = 5,
  exists = 6,
  badFormat = 7,
  outOfMemory = 8,
  badHandle = 9,
  badIndex = 10,
  badValue = 11,
  replyYes = 12,
  replyNo = 13,
  replyDefault = 14,  // "I have nothing to add: do what you do by default"
  badImageFormat = 1000,
};

/// Frames of the effect's own time line.
using Time = double;

/// Half-open rectangles, y up: integers are pixels, doubles the canonical square-pixel plane.
struct RectI {
  int x1, y1, x2, y2;
};
struct RectD {
  double x1, y1, x2, y2;
};
struct PointD {
  double x, y;
};
struct RangeD {
  double min, max;
};

// Handles: pointers whose targets only the host knows.
using PropertySet = struct OpaquePropertySet*;
using Effect = struct OpaqueEffect*;  // a descriptor or an instance
using Clip = struct OpaqueClip*;
using Param = struct OpaqueParam*;
using ParamSet = struct OpaqueParamSet*;
using ImageMemory = struct OpaqueImageMemory*;
using Mutex = struct OpaqueMutex*;
using Interact = struct OpaqueInteract*;  // an overlay's descriptor or instance
using DrawContext = struct OpaqueDrawContext*;

/// What the host gives the plug-in first.
struct Host {
  PropertySet properties;
  /// A suite of functions by name and version; null when the host has none such.
  const void* (*fetchSuite)(PropertySet host, const char* name, int version);
};

/// One plug-in of a binary, as OfxGetPlugin hands it out.
struct Plugin {
  const char* api;            // imageEffectApi
  int apiVersion;             // imageEffectApiVersion
  const char* identifier;     // unique, reverse domain name
  unsigned int versionMajor;  // rises when saved settings stop loading
  unsigned int versionMinor;
  void (*setHost)(Host* host);
  Status (*mainEntry)(const char* action, const void* handle, PropertySet in, PropertySet out);
};

inline constexpr const char* imageEffectApi = "OfxImageEffectPluginAPI";
inline constexpr int imageEffectApiVersion = 1;

/// Reads and writes named values. `index` counts the values of a many-valued property.
/// Strings that come back belong to the host and last until its next call.
struct PropertySuite {
  static constexpr const char* name = "OfxPropertySuite";
  Status (*setPointer)(PropertySet, const char* property, int index, void* value);
  Status (*setString)(PropertySet, const char* property, int index, const char* value);
  Status (*setDouble)(PropertySet, const char* property, int index, double value);
  Status (*setInt)(PropertySet, const char* property, int index, int value);
  Status (*setPointerN)(PropertySet, const char* property, int count, void* const* values);
  Status (*setStringN)(PropertySet, const char* property, int count, const char* const* values);
  Status (*setDoubleN)(PropertySet, const char* property, int count, const double* values);
  Status (*setIntN)(PropertySet, const char* property, int count, const int* values);
  Status (*getPointer)(PropertySet, const char* property, int index, void** value);
  Status (*getString)(PropertySet, const char* property, int index, char** value);
  Status (*getDouble)(PropertySet, const char* property, int index, double* value);
  Status (*getInt)(PropertySet, const char* property, int index, int* value);
  Status (*getPointerN)(PropertySet, const char* property, int count, void** values);
  Status (*getStringN)(PropertySet, const char* property, int count, char** values);
  Status (*getDoubleN)(PropertySet, const char* property, int count, double* values);
  Status (*getIntN)(PropertySet, const char* property, int count, int* values);
  Status (*reset)(PropertySet, const char* property);
  Status (*getDimension)(PropertySet, const char* property, int* count);
};

/// Clips, images and an effect's own sets. A fetched image is released before the action returns.
struct ImageEffectSuite {
  static constexpr const char* name = "OfxImageEffectSuite";
  Status (*getPropertySet)(Effect, PropertySet* properties);
  Status (*getParamSet)(Effect, ParamSet* params);
  Status (*clipDefine)(Effect, const char* name, PropertySet* properties);
  Status (*clipGetHandle)(Effect, const char* name, Clip* clip, PropertySet* properties);
  Status (*clipGetPropertySet)(Clip, PropertySet* properties);
  Status (*clipGetImage)(Clip, Time, const RectD* region, PropertySet* image);
  Status (*clipReleaseImage)(PropertySet image);
  Status (*clipGetRegionOfDefinition)(Clip, Time, RectD* bounds);
  int (*abort)(Effect);  // 1 when the host no longer wants the picture
  Status (*imageMemoryAlloc)(Effect, std::size_t bytes, ImageMemory* memory);
  Status (*imageMemoryFree)(ImageMemory);
  Status (*imageMemoryLock)(ImageMemory, void** address);
  Status (*imageMemoryUnlock)(ImageMemory);
};

/// Parameters. The variable arguments are pointers to (get) or values of (set) the parameter's
/// components: int for boolean and choice, double for numbers and colours, char* for strings.
struct ParameterSuite {
  static constexpr const char* name = "OfxParameterSuite";
  Status (*define)(ParamSet, const char* type, const char* name, PropertySet* properties);
  Status (*getHandle)(ParamSet, const char* name, Param* param, PropertySet* properties);
  Status (*setGetPropertySet)(ParamSet, PropertySet* properties);
  Status (*getPropertySet)(Param, PropertySet* properties);
  Status (*getValue)(Param, ...);
  Status (*getValueAtTime)(Param, Time, ...);
  Status (*getDerivative)(Param, Time, ...);
  Status (*getIntegral)(Param, Time from, Time to, ...);
  Status (*setValue)(Param, ...);
  Status (*setValueAtTime)(Param, Time, ...);
  Status (*getNumKeys)(Param, unsigned int* count);
  Status (*getKeyTime)(Param, unsigned int key, Time* time);
  Status (*getKeyIndex)(Param, Time, int direction, int* index);
  Status (*deleteKey)(Param, Time);
  Status (*deleteAllKeys)(Param);
  Status (*copy)(Param to, Param from, Time offset, const RangeD* frames);
  Status (*editBegin)(ParamSet, const char* label);  // one step of the host's undo
  Status (*editEnd)(ParamSet);
};

/// Runs `work` on several threads and returns when all have; never from inside itself. The host
/// may start fewer threads than asked for: `count` says how many.
struct MultiThreadSuite {
  static constexpr const char* name = "OfxMultiThreadSuite";
  using Work = void (*)(unsigned int index, unsigned int count, void* data);
  Status (*multiThread)(Work work, unsigned int threads, void* data);
  Status (*numCpus)(unsigned int* count);
  Status (*threadIndex)(unsigned int* index);
  int (*isSpawnedThread)();
  Status (*mutexCreate)(Mutex*, int lockCount);
  Status (*mutexDestroy)(Mutex);
  Status (*mutexLock)(Mutex);
  Status (*mutexUnlock)(Mutex);
  Status (*mutexTryLock)(Mutex);
};

/// Words to the user. Version 1 ends after `message`; a persistent message stays on the effect
/// until it is cleared, and one of type error keeps some hosts from rendering until then.
struct MessageSuite {
  static constexpr const char* name = "OfxMessageSuite";
  Status (*message)(void* effect, const char* type, const char* id, const char* format, ...);
  Status (*setPersistent)(void* effect, const char* type, const char* id, const char* format, ...);
  Status (*clearPersistent)(void* effect);
};

/// An overlay's own properties, and redrawing.
struct InteractSuite {
  static constexpr const char* name = "OfxInteractSuite";
  Status (*swapBuffers)(Interact);
  Status (*redraw)(Interact);
  Status (*getPropertySet)(Interact, PropertySet* properties);
};

/// Drawing in an overlay's draw action.
struct DrawSuite {
  static constexpr const char* name = "OfxDrawSuite";
  struct Colour {
    float r, g, b, a;
  };
  enum Primitive : int { lines, lineStrip, lineLoop, rectangle, polygon, ellipse };
  enum Purpose : int { background, active, selected, deselected };
  Status (*getColour)(DrawContext, int purpose, Colour* colour);
  Status (*setColour)(DrawContext, const Colour* colour);
  Status (*setLineWidth)(DrawContext, float width);
  Status (*setLineStipple)(DrawContext, int pattern);
  Status (*draw)(DrawContext, int primitive, const PointD* points, int count);
  Status (*drawText)(DrawContext, const char* text, const PointD* at, int alignment);
};

namespace message {
inline constexpr const char* error = "OfxMessageError";      // the user must act
inline constexpr const char* warning = "OfxMessageWarning";  // rendering goes on
inline constexpr const char* note = "OfxMessageMessage";     // nothing is wrong
}  // namespace message

/// What the host asks of the main entry.
namespace action {
inline constexpr const char* load = "OfxActionLoad";
inline constexpr const char* unload = "OfxActionUnload";
inline constexpr const char* describe = "OfxActionDescribe";
inline constexpr const char* describeInContext = "OfxImageEffectActionDescribeInContext";
inline constexpr const char* createInstance = "OfxActionCreateInstance";
inline constexpr const char* destroyInstance = "OfxActionDestroyInstance";
inline constexpr const char* instanceChanged = "OfxActionInstanceChanged";
inline constexpr const char* purgeCaches = "OfxActionPurgeCaches";
inline constexpr const char* syncPrivateData = "OfxActionSyncPrivateData";
inline constexpr const char* getClipPreferences = "OfxImageEffectActionGetClipPreferences";
inline constexpr const char* getRegionOfDefinition = "OfxImageEffectActionGetRegionOfDefinition";
inline constexpr const char* getRegionsOfInterest = "OfxImageEffectActionGetRegionsOfInterest";
inline constexpr const char* isIdentity = "OfxImageEffectActionIsIdentity";
inline constexpr const char* beginSequenceRender = "OfxImageEffectActionBeginSequenceRender";
inline constexpr const char* render = "OfxImageEffectActionRender";
inline constexpr const char* endSequenceRender = "OfxImageEffectActionEndSequenceRender";
// of an overlay
inline constexpr const char* draw = "OfxInteractActionDraw";
inline constexpr const char* penDown = "OfxInteractActionPenDown";
inline constexpr const char* penMotion = "OfxInteractActionPenMotion";
inline constexpr const char* penUp = "OfxInteractActionPenUp";
}  // namespace action

namespace context {
inline constexpr const char* filter = "OfxImageEffectContextFilter";    // one picture in, one out
inline constexpr const char* general = "OfxImageEffectContextGeneral";  // any number in
}  // namespace context

namespace depth {
inline constexpr const char* byte = "OfxBitDepthByte";   // 0..255
inline constexpr const char* word = "OfxBitDepthShort";  // 0..65535
inline constexpr const char* half = "OfxBitDepthHalf";
inline constexpr const char* real = "OfxBitDepthFloat";
}  // namespace depth

namespace components {
inline constexpr const char* rgba = "OfxImageComponentRGBA";
inline constexpr const char* rgb = "OfxImageComponentRGB";
inline constexpr const char* alpha = "OfxImageComponentAlpha";
}  // namespace components

/// How a picture's colour stands to its alpha.
namespace premultiplication {
inline constexpr const char* opaque = "OfxImageOpaque";
inline constexpr const char* premultiplied = "OfxImageAlphaPremultiplied";
inline constexpr const char* unpremultiplied = "OfxImageAlphaUnPremultiplied";
}  // namespace premultiplication

/// Which lines: lower are 0, 2, 4, upper 1, 3, 5, counted from the bottom of the plane.
namespace field {
inline constexpr const char* both = "OfxFieldBoth";
inline constexpr const char* lower = "OfxFieldLower";
inline constexpr const char* upper = "OfxFieldUpper";
}  // namespace field

namespace renderSafety {
inline constexpr const char* fully = "OfxImageEffectRenderFullySafe";  // any calls at once
}  // namespace renderSafety

namespace paramType {
inline constexpr const char* real = "OfxParamTypeDouble";
inline constexpr const char* integer = "OfxParamTypeInteger";
inline constexpr const char* boolean = "OfxParamTypeBoolean";
inline constexpr const char* choice = "OfxParamTypeChoice";         // its value is an index
inline constexpr const char* textChoice = "OfxParamTypeStrChoice";  // 1.5; an identifier's text
inline constexpr const char* rgb = "OfxParamTypeRGB";
inline constexpr const char* real2 = "OfxParamTypeDouble2D";
inline constexpr const char* real3 = "OfxParamTypeDouble3D";
inline constexpr const char* string = "OfxParamTypeString";
inline constexpr const char* group = "OfxParamTypeGroup";
inline constexpr const char* page = "OfxParamTypePage";
inline constexpr const char* pushButton = "OfxParamTypePushButton";
}  // namespace paramType

/// Property names; the comment says type x count and who sets it where.
namespace prop {
// of anything
inline constexpr const char* type = "OfxPropType";    // string
inline constexpr const char* name = "OfxPropName";    // string
inline constexpr const char* time = "OfxPropTime";    // double, in arguments
inline constexpr const char* label = "OfxPropLabel";  // string, what a user reads
inline constexpr const char* shortLabel = "OfxPropShortLabel";
inline constexpr const char* longLabel = "OfxPropLongLabel";
inline constexpr const char* icon = "OfxPropIcon";                  // string x2: SVG, PNG
inline constexpr const char* version = "OfxPropVersion";            // int xN
inline constexpr const char* versionLabel = "OfxPropVersionLabel";  // string
inline constexpr const char* description = "OfxPropPluginDescription";
inline constexpr const char* changeReason = "OfxPropChangeReason";
inline constexpr const char* instanceData = "OfxPropInstanceData";  // pointer, ours, per instance

// of the host
inline constexpr const char* hasTextChoice = "OfxParamHostPropSupportsStrChoice";  // int

// of a plug-in descriptor
inline constexpr const char* grouping = "OfxImageEffectPluginPropGrouping";
inline constexpr const char* contexts = "OfxImageEffectPropSupportedContexts";        // string xN
inline constexpr const char* pixelDepths = "OfxImageEffectPropSupportedPixelDepths";  // string xN
inline constexpr const char* singleInstance = "OfxImageEffectPluginPropSingleInstance";
inline constexpr const char* hostFrameThreading = "OfxImageEffectPluginPropHostFrameThreading";
inline constexpr const char* renderThreadSafety = "OfxImageEffectPluginRenderThreadSafety";
inline constexpr const char* multiResolution = "OfxImageEffectPropSupportsMultiResolution";
inline constexpr const char* tiles = "OfxImageEffectPropSupportsTiles";
inline constexpr const char* temporalAccess = "OfxImageEffectPropTemporalClipAccess";
inline constexpr const char* fieldRenderTwiceAlways =
    "OfxImageEffectPluginPropFieldRenderTwiceAlways";
inline constexpr const char* multipleClipDepths = "OfxImageEffectPropMultipleClipDepths";
inline constexpr const char* multipleClipAspects = "OfxImageEffectPropSupportsMultipleClipPARs";
inline constexpr const char* overlay =
    "OfxImageEffectPluginPropOverlayInteractV2";  // pointer to a main entry that draws by suite
inline constexpr const char* clipPreferencesSlaves =
    "OfxImageEffectPropClipPreferencesSlaveParam";  // string xN

// of an instance
inline constexpr const char* effectContext = "OfxImageEffectPropContext";  // also an argument

// of a clip
inline constexpr const char* supportedComponents = "OfxImageEffectPropSupportedComponents";
inline constexpr const char* optional = "OfxImageClipPropOptional";
inline constexpr const char* isMask = "OfxImageClipPropIsMask";
inline constexpr const char* connected = "OfxImageClipPropConnected";
inline constexpr const char* fieldExtraction = "OfxImageClipPropFieldExtraction";

// of a clip and of an image
inline constexpr const char* pixelDepth = "OfxImageEffectPropPixelDepth";
inline constexpr const char* pixelComponents = "OfxImageEffectPropComponents";
inline constexpr const char* premultiplication = "OfxImageEffectPropPreMultiplication";

// of an image
inline constexpr const char* data = "OfxImagePropData";          // pointer to pixel (x1, y1)
inline constexpr const char* bounds = "OfxImagePropBounds";      // int x4
inline constexpr const char* rowBytes = "OfxImagePropRowBytes";  // int, may be negative
inline constexpr const char* imageField = "OfxImagePropField";
inline constexpr const char* pixelAspect = "OfxImagePropPixelAspectRatio";  // double
inline constexpr const char* identity = "OfxImagePropUniqueIdentifier";     // string

// of an image and in arguments
inline constexpr const char* renderScale = "OfxImageEffectPropRenderScale";  // double x2

// arguments of actions
inline constexpr const char* renderWindow = "OfxImageEffectPropRenderWindow";  // int x4, pixels
inline constexpr const char* fieldToRender = "OfxImageEffectPropFieldToRender";
inline constexpr const char* regionOfDefinition = "OfxImageEffectPropRegionOfDefinition";
inline constexpr const char* regionOfInterest = "OfxImageEffectPropRegionOfInterest";
inline constexpr const char* frameVarying = "OfxImageEffectFrameVarying";
// with the clip's name after the underscore
inline constexpr const char* clipRegionOfInterest = "OfxImageClipPropRoI_";
inline constexpr const char* clipComponents = "OfxImageClipPropComponents_";

// of a parameter
inline constexpr const char* hint = "OfxParamPropHint";
inline constexpr const char* scriptName = "OfxParamPropScriptName";
inline constexpr const char* parent = "OfxParamPropParent";  // a group's name
inline constexpr const char* defaultValue = "OfxParamPropDefault";
inline constexpr const char* minimum = "OfxParamPropMin";
inline constexpr const char* maximum = "OfxParamPropMax";
inline constexpr const char* displayMinimum = "OfxParamPropDisplayMin";
inline constexpr const char* displayMaximum = "OfxParamPropDisplayMax";
inline constexpr const char* increment = "OfxParamPropIncrement";
inline constexpr const char* digits = "OfxParamPropDigits";
inline constexpr const char* dimensionLabel = "OfxParamPropDimensionLabel";  // string x dimension
inline constexpr const char* animates = "OfxParamPropAnimates";
inline constexpr const char* enabled = "OfxParamPropEnabled";
inline constexpr const char* evaluateOnChange = "OfxParamPropEvaluateOnChange";
inline constexpr const char* choiceOption = "OfxParamPropChoiceOption";  // string xN, shown
inline constexpr const char* choiceId = "OfxParamPropChoiceEnum";        // string xN, saved
inline constexpr const char* secret = "OfxParamPropSecret";              // int
inline constexpr const char* doubleType = "OfxParamPropDoubleType";
inline constexpr const char* defaultCoordinates = "OfxParamPropDefaultCoordinateSystem";
inline constexpr const char* hostHandle = "kOfxParamPropUseHostOverlayHandle";  // int; so spelled
inline constexpr const char* stringMode = "OfxParamPropStringMode";
inline constexpr const char* groupOpen = "OfxParamPropGroupOpen";
inline constexpr const char* pageChild = "OfxParamPropPageChild";        // string xN
inline constexpr const char* pageOrder = "OfxPluginPropParamPageOrder";  // string xN

// of an overlay, and in arguments of its actions
inline constexpr const char* effectInstance = "OfxPropEffectInstance";    // pointer
inline constexpr const char* drawContext = "OfxInteractPropDrawContext";  // pointer
inline constexpr const char* pixelScale = "OfxInteractPropPixelScale";    // double x2
inline constexpr const char* penPosition = "OfxInteractPropPenPosition";  // double x2
inline constexpr const char* redrawnBy = "OfxInteractPropSlaveToParam";   // string xN
}  // namespace prop

inline constexpr const char* stringIsLabel = "OfxParamStringIsLabel";
inline constexpr const char* stringIsFile = "OfxParamStringIsFilePath";
inline constexpr const char* isPosition = "OfxParamDoubleTypeXYAbsolute";
inline constexpr const char* isSize = "OfxParamDoubleTypeXY";
inline constexpr const char* normalised = "OfxParamCoordinatesNormalised";
inline constexpr const char* typeParameter = "OfxTypeParameter";
inline constexpr const char* changedByUser = "OfxChangeUserEdited";

// The names a clip has by the standard; the others are ours.
inline constexpr const char* sourceClip = "Source";
inline constexpr const char* outputClip = "Output";

}  // namespace ofx
