// IMB_OCIO: colour management over one process-wide OpenColorIO configuration.
//
// The configuration named by the environment variable OCIO is loaded on the
// first call of any function here and again on reload(); without OCIO the
// library has no configuration and every query gives its empty answer (null,
// empty string, false, nothing appended). Colour-space handles and processors
// are cached by name; handles belong to the caches and stay valid until the
// next reload(), processor handles (PHandle) turn stale at reload().
//
// Thread-safety: every query, lookup and transform may run on many threads at
// once. reload(), addConfigChangeCB() and removeConfigChangeCB() are
// serialised by one lock; reload() must be called from one control thread
// while no other thread uses colour-space handles, processors or strings
// returned here. No OpenColorIO exception leaves these functions.
//
// Failures give the empty answer documented with each function; OpenColorIO's
// reason goes to the library's error log (BAS_ErrorLog.h) as
// "OCIO <what was being done>: <OpenColorIO's text>", by one rule:
// - a failed operation (loading the configuration, building a processor,
//   transforming pixels) is an error: printed on the standard error stream
//   (or passed to the installed sink), or collected by the calling thread's
//   BAS_ErrorCapture. A processor that failed to build is reported when it is
//   built; a later lookup that hands the cached failure out again repeats the
//   reason to the thread's capture only, never to the stream.
// - a failed query (colour-space lookups, lists of names, displays and views,
//   colour spaces of file paths, allocations, is3D / isNoOp), which callers
//   use to probe, is a level-1 message of the library's log (IMB_VERBOSE=1),
//   so that routine probing stays quiet.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Functor.h>
#include <IMB/platform/BAS_Options.h>
#include <IMB/platform/BAS_StringArray.h>
#include <IMB/platform/BAS_StringHolder.h>
#include <IMB/platform/BAS_Types.h>

#include <memory>

namespace IMB_OCIO
{
struct ProcessorRecord; // internal; defined by the library

// ------------------------------------------------------------------ state

// The configuration path of the last load when a configuration is loaded,
// otherwise the empty string.
IMB_API const BAS_StringRef &configFilePath();

// False when no configuration is loaded; true when any load found OCIO set;
// otherwise allowActiveOverride && (the last load found OCIO_ACTIVE_DISPLAYS
// or OCIO_ACTIVE_VIEWS set and non-empty).
IMB_API bool isOCIOEnvSet(bool allowActiveOverride);

// Loads the configuration again from the environment, empties the colour-space
// and processor caches and the viewing-rule map, then calls every registered
// change callback (in order of their ids) under the registry lock. Callbacks
// must not add or remove callbacks or reload. Every PHandle and ColorSpace
// pointer obtained before becomes stale.
IMB_API void reload();

// Registers a callback for configuration changes and returns its id (1, 2,
// 3 ... never reused). The lvalue form takes the functor out of `callback`,
// which is left empty.
IMB_API int addConfigChangeCB(BAS_Functor<void> &callback);
IMB_API int addConfigChangeCB(BAS_Functor<void> &&callback);

// Removes the callback with that id; an unknown id is ignored.
IMB_API void removeConfigChangeCB(int id);

// ------------------------------------------------------------ colour spaces

// A cached colour-space record: the configuration's colour space (held
// opaquely) and its information record (see getInfo). Created only by the
// lookup cache; callers hold `const ColorSpace *` until the next reload().
class IMB_API ColorSpace
{
public:
    // `space` is the library's own handle to the colour space (may be null).
    ColorSpace(std::shared_ptr<const void> space, BAS_Options info);
    ~ColorSpace();
    ColorSpace(const ColorSpace &) = delete;
    ColorSpace &operator=(const ColorSpace &) = delete;

    // True when the name was found in the configuration.
    bool hasSpace() const { return static_cast<bool>(mySpace); }
    // The information record built when the handle was made.
    const BAS_Options &info() const { return myInfo; }
    // The library's opaque handle to the configuration's colour space.
    const std::shared_ptr<const void> &space() const { return mySpace; }

private:
    std::shared_ptr<const void> mySpace;
    BAS_Options myInfo;
};

// The cached handle of the colour space `name` (a colour-space name, alias or
// role). Null when no configuration is loaded or it does not know the name;
// a failed lookup is cached too. When the exact text "sRGB" is not known, the
// well-known sRGB space is returned (and cached) for it.
IMB_API const ColorSpace *lookupSpace(const BAS_StringHolder &name);

// Name and description of a colour space; null for a null handle or a handle
// without colour space.
IMB_API const char *getName(const ColorSpace *cs);
IMB_API const char *getDescription(const ColorSpace *cs);

// Copies the information record into `out`: "name", "family",
// "equalitygroup", "description" (strings), "isdata" (bool), "allocation"
// ("uniform", "lg2" or "<unknown>"), "allocationvars" (three numbers),
// "bitdepth" (OpenColorIO's bit-depth text). False (and `out` untouched) for a
// null handle or one without colour space.
IMB_API bool getInfo(const ColorSpace *cs, BAS_Options &out);

// Allocation of a colour space: `uniform` is true for a uniform allocation,
// false for lg2; min, max and offset are its first three allocation variables
// (zero where the space has fewer). False for a null handle or on error.
IMB_API bool getAllocationVars(const ColorSpace *cs, bool &uniform, double &min, double &max, double &offset);

// Sets `isFloat` to whether the space's bit depth is 16- or 32-bit float and
// returns it; false (isFloat false) for a null handle.
IMB_API bool isFloatPointSpace(const ColorSpace *cs, bool &isFloat);

// True when `cs` is the scene-linear role's space (same handle or same name).
IMB_API bool isSceneLinear(const ColorSpace *cs);
// True when the space's name equals the well-known sRGB name.
IMB_API bool issRGB(const ColorSpace *cs);

// The well-known space names found at the last load (empty without
// configuration or when the configuration has no candidate and no fallback).
IMB_API const BAS_StringHolder &getsRGBColorSpace();
IMB_API const BAS_StringHolder &getRec709ColorSpace();
IMB_API const BAS_StringHolder &getLinearRec709ColorSpace();
IMB_API const BAS_StringHolder &getRawColorSpace();
// The colour space the file rules give an ".exr" file (the linear Rec.709
// name in parsing mode 1 or when the rules give none).
IMB_API const BAS_StringHolder &getFileDefaultColorSpace();
// The canonical name of the space `name` when the configuration knows it
// (a host's own preferred sRGB space), else the well-known sRGB name.
IMB_API BAS_StringHolder getsRGBColorSpace(const char *name);

// OpenColorIO's role names ("default", "reference", "scene_linear", "data",
// "compositing_log", "color_picking").
IMB_API const char *getDefaultRole();
IMB_API const char *getReferenceRole();
IMB_API const char *getSceneLinearRole();
IMB_API const char *getDataRole();
IMB_API const char *getCompLogRole();
IMB_API const char *getColorPickingRole();

// Append the configuration's role names / colour-space names in
// configuration order (nothing without configuration).
IMB_API void getRoles(BAS_StringArray &out);
IMB_API void getColorSpaces(BAS_StringArray &out);

// The colour space named by a file path or similar text, found by the parsing
// mode (environment control 72): file rules (mode 0), dot- and
// underscore-separated tokens (mode 1), the file-rule name map (mode 2), file
// rules except the default rule (mode 3). Null / empty when none matches, for
// null or empty text, and without configuration. The pointer belongs to the
// configuration.
IMB_API const char *parseColorSpaceFromString(const char *text);
IMB_API BAS_StringHolder parseColorSpaceFromHolder(const BAS_StringHolder &text);

// Raster tag of a colour space; `name` receives the space's name. A null
// handle gives IMB_CS_UNKNOWN and leaves `name`.
IMB_API IMB_ColorSpace imbImageColorSpace(const ColorSpace *cs, BAS_StringHolder &name);
// Raster tag of a colour-space name: as above when the configuration knows
// it, else `name` := spaceName and the tag is IMBgetColorSpace(spaceName).
IMB_API IMB_ColorSpace imbImageColorSpace(const BAS_StringHolder &spaceName, BAS_StringHolder &name);
// Colour-space name of a raster tag: linear -> linear Rec.709, gamma2.2 and
// srgb -> sRGB, rec709 -> Rec.709, opencolorio -> ocioName when known; empty
// for every other case.
IMB_API const BAS_StringHolder &imbImageColorSpace(IMB_ColorSpace tag, const BAS_StringHolder &ocioName);

// ------------------------------------------------------------- processors

// A small value handle to a cached processor. Stale after reload(): a stale
// handle is not valid, is a no-op, is not 3D and cannot transform.
class IMB_API PHandle
{
public:
    PHandle() = default;
    PHandle(const ProcessorRecord *record, uint32 serial) : myRecord(record), mySerial(serial) {}

    // Current (made since the last load) and built successfully.
    bool isValid() const;
    explicit operator bool() const { return isValid(); }
    // Current, built, and the transform mixes channels (needs a cube).
    bool is3D() const;
    // True for an empty or stale handle, a missing processor, or a processor
    // that changes nothing.
    bool isNoOp() const;
    // Empties the handle.
    void clear()
    {
        myRecord = nullptr;
        mySerial = 0;
    }
    // Current: non-empty and made since the last load.
    bool isCurrent() const;

    const ProcessorRecord *record() const { return myRecord; }
    uint32 serial() const { return mySerial; }

private:
    const ProcessorRecord *myRecord = nullptr;
    uint32 mySerial = 0;
};

// Processor from colour space src to dst, through `looks` (one look name),
// forward or inverse. A leading '+' on the look is ignored; a leading '-'
// reverses the direction of the whole look transform (src -> look -> dst
// becomes its inverse), also when the look itself is unknown. Cached by the
// text of the request, so an alias and its canonical name get two entries.
// An invalid handle when the configuration is missing, a space is unknown or
// building fails. An unknown look is left out (reported on stderr as
// "OCIO unknown look: <name>" when control 97 > 0).
IMB_API PHandle lookupProcessor(const BAS_StringHolder &src, const BAS_StringHolder &dst,
                                const BAS_StringHolder &looks, bool forward);
// The same, keyed by the two handles' names.
IMB_API PHandle lookupProcessor(const ColorSpace *src, const ColorSpace *dst, const BAS_StringHolder &looks,
                                bool forward);
// Processor from colour space src to a display and view (or back, when not
// forward).
IMB_API PHandle lookupViewProcessor(const BAS_StringHolder &src, const BAS_StringHolder &display,
                                    const BAS_StringHolder &view, bool forward);
// The same to the default display (getDefaultDisplay()) and its default view.
IMB_API PHandle lookupViewProcessor(const BAS_StringHolder &src, bool forward);

// Applies the processor in place to `count` pixels of `channels` floats each.
// False for an empty, stale or invalid handle or on error; true without
// touching the pixels for a no-op processor. Runs of 128 pixels or more go
// through one packed image; shorter runs go pixel by pixel (3 channels: RGB;
// 4 or more: RGBA, later channels untouched; 1 or 2: left untouched).
IMB_API bool transform(const PHandle &h, float *pixels, int count, int channels);

// ------------------------------------------------ displays, views and looks

// Active displays: the configuration's active list split at "," and trimmed,
// or every display. `out` is emptied first; untouched without configuration.
IMB_API void getActiveDisplays(BAS_StringArray &out);
// Active views: the configuration's active list, or every view of the default
// display.
IMB_API void getActiveViews(BAS_StringArray &out);
// The first display of OCIO_ACTIVE_DISPLAYS when the configuration has it
// (exact comparison, nothing trimmed), else the configuration's default.
IMB_API const char *getDefaultDisplay();
// For a null display or the default display: the configuration's default
// view transform name. Otherwise the first view of OCIO_ACTIVE_VIEWS when the
// display has it, else the display's default view.
IMB_API const char *getDefaultView(const char *display);
// Empties `out` and appends the views of `display`; false without
// configuration.
IMB_API bool getViewsForDisplay(const char *display, BAS_StringArray &out);
// Colour space of a display/view; the display name itself when the view uses
// "<USE_DISPLAY_NAME>".
IMB_API const char *getColorSpaceForDisplayView(const char *display, const char *view);
// Looks of a display/view.
IMB_API const char *getLooksForDisplayView(const char *display, const char *view);
// View transform of a display/view.
IMB_API const char *getTransformNameForDisplayView(const char *display, const char *view);
// Empties `out` and appends the configuration's look names.
IMB_API void getLooks(BAS_StringArray &out);
// Options of a viewing rule captured at the first load ("name", "spaces",
// "encodings", "custom"); a shared empty object for an unknown name.
IMB_API const BAS_Options &viewingRule(const BAS_StringRef &name);
// Sets `out` to the names of the captured viewing rules, in rule order.
IMB_API void viewingRuleNames(BAS_StringArray &out);
} // namespace IMB_OCIO
