// IMB_Lookup: lookup tables, 1D per channel or shared, 3D colour cubes, and
// cubes with a shared 1D pre-table.
//
// A table carries its 1D tracks (a CRV_Clip, one track per table), an
// optional cube, the input domain, the output range, black and white points,
// optional logarithmic sampling of the input and two opaque display handles.
// It is built analytically (gamma, sRGB, Rec.709), from colour transforms, or
// loaded from a text (".lut") or binary (".blut") file, then evaluated for
// single values or applied to every pixel of an IMB_Raster. Tables are also
// exchanged with grading and compositing tools as ".cube", ".spi1d",
// ".spi3d", ".3dl" and ".csp" files (see "exchange files" below).
//
// Ownership: the object owns its clip and cube; the display handles belong
// to the host, the object only asks IMB_IsTexture_cb / IMB_DeleteTextures_cb
// (declared in IMB_Raster.h) about them.
// Thread-safety: none for changes. Const operations (evaluation, applyLUT)
// may run concurrently on one table; applyLUT itself spreads rasters of more
// than 100,000 pixels over the shared thread pool.
#pragma once

#include <IMB/IMB_API.h>
#include <IMB/IMB_Formats.h>
#include <IMB/platform/BAS_Types.h>
#include <IMB/platform/half16.h>

#include <cstdio>
#include <memory>
#include <string>

class CRV_Clip;
class IMB_Raster;
class BAS_FileLUT;
namespace IMB_OCIO
{
class ColorSpace;
}
namespace imb_detail
{
struct LookupAccess;
struct LookupTestAccess;
}

// The kind of a table: a bit set. Bits 1, 2, 4, 8 name the channels (R, G, B,
// A), bit 16 means one table per channel, bit 32 one table shared by the
// channels, bit 64 a 3D cube. The same 32-bit word also carries the
// log-sampling flag IMB_LUT_LOG_SAMPLING (0x100); getType() returns the whole
// word, so compare with the flag masked off.
enum IMB_LookupType : int32
{
    IMB_LUT_R = 1,      // "R": red only
    IMB_LUT_G = 2,      // "G": green only
    IMB_LUT_B = 4,      // "B": blue only
    IMB_LUT_A = 8,      // "A": alpha only
    IMB_LUT_RGB = 23,   // "RGB": separate red, green and blue tables
    IMB_LUT_RGBA = 31,  // "RGBA": separate red, green, blue and alpha tables
    IMB_LUT_C = 39,     // "C": one table shared by red, green and blue
    IMB_LUT_ALL = 47,   // "All": one table shared by all four channels
    IMB_LUT_3D = 64,    // "3D": colour cube only
    IMB_LUT_3D_1D = 96, // "3D+1D": colour cube with one shared pre-table
    IMB_LUT_LOG_SAMPLING = 0x100, // flag: the input is sampled logarithmically
};

class IMB_API IMB_Lookup
{
public:
    // Direction of the analytic builders: FORWARD (0) encodes, any other
    // value decodes.
    enum Dir : int32
    {
        FORWARD = 0,
        INVERSE = 1,
    };

    // Tags that select the building constructors.
    struct BuildGammaTag
    {
    };
    struct BuildSRGBTag
    {
    };
    struct BuildRec709Tag
    {
    };
    struct BuildOCIOTag
    {
    };
    static constexpr BuildGammaTag BuildGamma{};
    static constexpr BuildSRGBTag BuildSRGB{};
    static constexpr BuildRec709Tag BuildRec709{};
    static constexpr BuildOCIOTag BuildOCIO{};

    // ------------------------------------------------------------ lifetime
    // An empty table: type "All" (47), no tracks, any format, domain and
    // range 0-1, black 0, white 1, log bias and pre-shift 0.
    IMB_Lookup();
    // Default-construct, then buildGamma(gamma, dir, size); a failed build
    // leaves the reset table.
    IMB_Lookup(BuildGammaTag, double gamma, Dir dir, int size);
    // Default-construct, then buildSRGB(dir, size).
    IMB_Lookup(BuildSRGBTag, Dir dir, int size);
    // Default-construct, then buildREC709(dir, size).
    IMB_Lookup(BuildRec709Tag, Dir dir, int size);
    // Default-construct, then buildOpenColorIO(src, dest, nullptr, size);
    // the result of the build is discarded (check isValid()).
    IMB_Lookup(BuildOCIOTag, const char *src, const char *dest, int size);
    // Deep copies of tables, cube and fields; the display handles are not
    // copied (the copy has none).
    IMB_Lookup(const IMB_Lookup &src);
    IMB_Lookup &operator=(const IMB_Lookup &src);
    // Releases the display handles through IMB_DeleteTextures_cb, frees the
    // cube and the clip.
    ~IMB_Lookup();

    // ------------------------------------------------------------ kind
    // The whole type word, log-sampling flag (0x100) included.
    IMB_LookupType getType() const { return myType; }
    // Sets the kind and the track count. The log flag is kept unless `type`
    // is 96 (3D+1D never carries it). Tracks: 96 -> 1; any of bits 1, 2, 4,
    // 16 -> 3; else bit 8 -> 4; else 1 without bit 64 and 0 with it. So R, G,
    // B, RGB, RGBA, C and All all get three tracks and only A four: an RGBA
    // table made this way has no alpha track (kept; callers add it).
    void setType(IMB_LookupType type);
    // True when the table has a cube.
    bool is3DLUT() const { return my3DSize != 0; }
    // True when there is a cube or at least one track.
    bool isValid() const;
    // Samples per cube edge (without the padding sample); 0 without a cube.
    int get3DSize() const { return my3DSize; }
    // The number of 1D tracks.
    int getNumChannels() const;
    // Appends tracks named "t" up to `n`, or removes tracks above `n`. The
    // removal stops part-way when shrinking by more than one (4 -> 1 leaves
    // 2); deliberate, tables saved by older code depend on it.
    void setNumChannels(int n);
    // Samples per track.
    int getTableSize() const;
    // Sets every track's length, keeping existing samples (new ones are 0).
    void setTableSize(int n);

    // ------------------------------------------------------------ fields
    float getBlackPoint() const { return myBlackPoint; }
    float getWhitePoint() const { return myWhitePoint; }
    // Stores both points unchecked.
    void setBlackWhitePoints(float black, float white)
    {
        myBlackPoint = black;
        myWhitePoint = white;
    }
    // The input interval.
    void getDomain(float &min, float &max) const
    {
        min = myDomainMin;
        max = myDomainMax;
    }
    // Stores the ordered pair. With log sampling on, a minimum below 1e-6
    // becomes 1e-6, and then a maximum also below 1e-6 becomes 1.0.
    void setDomain(float a, float b);
    // The output interval.
    void getRange(float &min, float &max) const
    {
        min = myRangeMin;
        max = myRangeMax;
    }
    // Stores the ordered pair.
    void setRange(float a, float b);
    float getLogBias() const { return myLogBias; }
    // Stores `bias` clamped to [-20, 20].
    void setLogBias(float bias);
    // The offset subtracted from log-sampled grids (see prep1DLUT).
    float getPreShift() const { return myPreShift; }
    // True when the log-sampling flag (0x100) is set.
    bool getLogSampling() const { return (myType & IMB_LUT_LOG_SAMPLING) != 0; }
    // Sets or clears the flag; setting it on a 3D+1D (96) table does nothing.
    void setLogSampling(bool on);
    // False when the table is for any format (5); else stores the format.
    bool hasSpecificFormat(IMB_DataFormat &format) const;
    void setSpecificFormat(IMB_DataFormat format) { mySpecificFormat = format; }
    // True when the table was loaded from half-precision samples.
    bool isHalfPrec() const { return myHalfPrec; }
    void setHalfPrec(bool half) { myHalfPrec = half; }

    // ------------------------------------------------------------ tables
    // The track that serves channel `type` (see getIndexFor) as its sample
    // array, or null when there is none.
    double *getRawLUT(IMB_LookupType type);
    const double *getRawLUT(IMB_LookupType type) const;
    // Which track serves the channel `type` (IMB_LUT_R .. IMB_LUT_A); with
    // m = type word & 63: -1 when type & m is 0; R -> 0; G -> 1 and B -> 2 for
    // RGB/RGBA, else 0; A -> 3 for RGBA, else 0; other queries -1 when
    // (m | type) is 48, else 0. The result may exceed the track count.
    int getIndexFor(IMB_LookupType type) const;
    // (type & m) != 0 and (m | type) != 48, m as in getIndexFor.
    bool hasLUTfor(IMB_LookupType type) const;
    // The 1D tracks.
    const CRV_Clip &getLUT() const { return *myClip; }
    // Replaces the tracks by a copy of `clip`. For 3D+1D only the first track
    // is kept; for other types an existing cube is freed.
    void setLUT(const CRV_Clip &clip);
    // The padded cube ((n+1)^3 RGB triples, red fastest) or null.
    const float *get3DLUT() const { return my3DTable.get(); }
    // Makes this a cube of edge `n` from n^3 RGB triples (red fastest, blue
    // slowest), adding the padding samples. Unless the type is 96, the type
    // becomes 64 ("3D", log flag kept) and the tracks are destroyed. Resets
    // the pre-shift. Nothing happens when n < 1 or rgb is null.
    void set3DLUT(int n, const float *rgb);
    // Copies the cube out: n^3 triples, or (n+1)^3 with the padding when
    // `padded`. Nothing happens without a cube.
    void copy3DLUT(float *dst, bool padded = false) const;
    void copy3DLUT(half16 *dst, bool padded = false) const;
    // Bytes of the tracks and the cube (12 (n+1)^3), plus the object when
    // inclusive.
    int64 getMemoryUsage(bool inclusive) const;
    // Destroys tracks and cube, releases the display handles and sets every
    // field back to the default of the empty constructor.
    void reset();

    // ------------------------------------------------------------ display
    // The handle, when it is set, IMB_IsTexture_cb is installed and says it
    // is still a texture; else null.
    void *getTextureID() const;
    void *getPreLutID() const;
    void setTextureID(void *id) { myTextureID = id; }
    void setPreLutID(void *id) { myPreLutID = id; }
    // When IMB_DeleteTextures_cb is installed: deletes both non-null handles
    // through it and forgets them. Without the hook nothing changes.
    void clearTextureID();

    // ------------------------------------------------------------ builders
    // Each builder resets the table, refuses (false) a size below 2, then
    // makes a "C" table (39) of three tracks of `size` samples, only track 0
    // filled, sampled at x = i / (size - 1); domain and range stay 0-1.
    // x^(1/gamma) for FORWARD, x^gamma otherwise; false also when gamma <= 0.
    bool buildGamma(double gamma, Dir dir, int size);
    // sRGB: encode 1.055 x^(1/2.4) - 0.055 above 0.0031308, else 12.92 x;
    // decode ((x + 0.055)/1.055)^2.4 above 0.004045, else x/12.92. The decode
    // threshold 0.004045 is deliberate and kept: stored tables depend on it.
    bool buildSRGB(Dir dir, int size);
    // Rec.709: encode 1.099 x^0.45 - 0.099 from 0.018, else 4.5 x; decode
    // ((x + 0.099)/1.099)^(1/0.45) from 0.081, else x/4.5.
    bool buildREC709(Dir dir, int size);
    // Bakes the colour transform src -> dest (with optional looks, may be
    // null) into a 1D table of 8192 samples ("RGB") when the transform works
    // per channel, or into a cube of edge 64 (96 when `large` is non-zero and
    // neither space reports an allocation) otherwise. The sampling interval
    // follows the spaces' allocations. False for unknown spaces or a failed
    // transform (the table is then empty).
    bool buildOpenColorIO(const char *src, const char *dest, const char *looks, int large);
    // As buildOpenColorIO for the display/view transform from `src` to
    // `display`/`view` with optional `looks`; `forward` false bakes the
    // inverse; `unused` is ignored.
    bool buildOpenColorIOView(const char *src, const char *display, const char *view, const char *looks,
                              const char *unused, bool forward, int large);
    // The first track resampled into 1024 values as a curve-file object
    // (scale 65536, flag negated, named `name`, white point rounded); null
    // when there are no tracks.
    std::unique_ptr<BAS_FileLUT> getCineonLUT(bool flag, const char *name) const;

    // ------------------------------------------------------------ evaluation
    // The channel's table at x. Without log sampling the position is
    // (N - 1) x (the domain is not used); with it, x is clamped to the domain
    // and the position is N (ln x - ln dmin)/(ln dmax - ln dmin): the factor
    // N, not N - 1, is deliberate and kept (stored tables were tuned to it),
    // so x = dmax asks for one past the last sample (the last sample is
    // returned). A non-empty range maps the value v to (v - rmin)/(rmax - rmin).
    // A channel without a table returns x unchanged.
    float evalLUT(IMB_LookupType type, float x) const;
    // For a cube: eval3DLUT. Else rgb[0..2] = evalLUT(R/G/B, rgb[0..2]).
    void evalLUT(float rgb[3]) const;
    // Resamples the channel's whole track into `count` values, then, unless
    // black == white or (black, white) equals the range, maps each value v
    // to (v - rmin) k + black with k = (white - black)/(rmax - rmin) (k = 1
    // for an empty range). False when the channel has no table (or count < 1
    // or out is null).
    bool evalLUT(IMB_LookupType type, int count, float *out, unsigned black, unsigned white) const;
    // As above with float points; without log sampling only the part
    // [from, to] of the track (as fractions of its length) is resampled.
    bool evalLUT(IMB_LookupType type, int count, float *out, float black, float white, float from,
                 float to) const;
    // Trilinear cube lookup in place (through the pre-table for 3D+1D, in log
    // space with log sampling). A fraction within 1e-5 of a sample takes that
    // sample as is. Nothing happens without a cube.
    void eval3DLUT(float rgb[3]) const;
    // The input value of grid index i: dmin + i (dmax - dmin)/(m - 1), or with
    // log sampling e^(ln dmin + i (ln dmax - ln dmin)/(m - 1)) with e taken
    // as the float 2.7182819843292236. m is the track length when the type
    // word has any bit of 127 (the cube bit included), else the cube edge;
    // kept as is. dmin when m < 2.
    double indexToValue(int i) const;

    // ------------------------------------------------------------ editing
    // Clamps every cube float (padding included) to [0, 1].
    void clamp3DLUT();
    // Replaces every 1D track by its inverse function, resampled to `size`
    // samples (size <= 0 keeps the length), then exchanges domain and range.
    // Integer-format tables (specific format other than f32 and any) get
    // integer samples. The first sample is the old domain minimum and the
    // last exactly the old domain maximum.
    void invert(int size);
    // This table becomes `a` followed by `b` (1D or cube, see the
    // implementation notes); returns true.
    bool mergeLUTs(const IMB_Lookup &a, const IMB_Lookup &b);

    // ------------------------------------------------------------ application
    // Applies the table to every pixel of `r` in place: apply3DLUT for cube
    // types, apply1DLUT otherwise. Rasters without memory or of an unknown
    // format or packing are left alone.
    //  gamma:   the table output is raised to 1/max(gamma, 1e-6) (values
    //           <= 0 pass the power unchanged).
    //  black, white: input and output points in 0-1 units, for the integer
    //           formats only: 8 bit scales them by 255, 16 bit by 65535,
    //           32 bit by 2^31 (deliberate and kept: the points of 32-bit
    //           integer rasters are 31-bit), each rounded to nearest. An
    //           integer component v reads as (v - black)/(white - black) and
    //           a result y is stored as floor(y (white - black) + black + 0.5)
    //           clamped to the format's range. With black 0 and white 1
    //           exactly, v reads as v / full scale and is stored over the full
    //           scale (255, 65535, 4294967295). Float and half rasters ignore
    //           the points: their values are used and stored as they are.
    //  channel: -1 for every channel; otherwise (clamped to 0..3) only that
    //           channel is computed and then copied into the other colour
    //           channels (0-2 into the other two of R, G, B; 3 into R, G, B).
    //           The copy runs even when the channel has no table.
    // 1D: every channel with a table (getIndexFor) is mapped: x is clamped to
    // the domain (NaN reads as the domain minimum), its position is
    // (x - dmin)(N - 1)/(dmax - dmin), or in log space (ln x - ln dmin)(N - 1)
    // / (ln dmax - ln dmin), and the neighbouring samples are interpolated.
    // An empty domain reads sample 0. Channels without a table stay.
    // Cube: int8, int16, float and half rasters with at least three
    // components per pixel; float and half pixels with a NaN component are
    // left unchanged; the cube reads and writes R, G and B, then a given
    // channel 0-2 is copied as above; channel 3 only copies alpha into R, G,
    // B. 32-bit integer rasters are left unchanged by cubes (kept as
    // designed). The log bias is not used here.
    // Rasters above 100,000 pixels are split over the shared thread pool.
    // 1D tables reach 8-bit rasters, and 16-bit ones from 262,144 pixels,
    // through per-value tables (IMB_Raster::applyLUT): the same rule, one
    // lookup per component.
    void applyLUT(IMB_Raster &r, float gamma = 1.0f, float black = 0.0f, float white = 1.0f,
                  int channel = -1) const;
    // The 1D part of applyLUT (tables by getIndexFor; nothing without tracks).
    void apply1DLUT(IMB_Raster &r, float gamma = 1.0f, float black = 0.0f, float white = 1.0f,
                    int channel = -1) const;
    // The cube part of applyLUT (nothing without a cube).
    void apply3DLUT(IMB_Raster &r, float gamma = 1.0f, float black = 0.0f, float white = 1.0f,
                    int channel = -1) const;
    // Direct tables of the 1D part of applyLUT for an 8- or 16-bit raster:
    // for every channel c (0-3) whose maps[c] is not null and which the
    // table changes (getIndexFor; only `channel` when it is 0-3), maps[c]
    // receives 256 (IMB_INT8) or 65536 (IMB_INT16) entries of the format's
    // type, entry v being exactly what applyLUT stores for a component of
    // value v with the same gamma, points and channel. Returns the channels
    // filled as a bit mask (bit c for channel c); 0, with nothing written,
    // for other formats, cubes and tables without samples. The copy of a
    // given channel into the others is the caller's.
    int buildValueMaps(IMB_DataFormat format, void *maps[4], float gamma = 1.0f, float black = 0.0f,
                       float white = 1.0f, int channel = -1) const;

    // ------------------------------------------------------------ files
    // Writes the text form (".lut"). Always true.
    bool save(FILE *fp) const;
    // Reads the text form; with `headerOnly` stops after the header ("LUT:").
    // Messages go to stderr; false on a malformed file (what was read stays).
    // Does not run correctLUT.
    bool load(FILE *fp, bool headerOnly);
    // Saves to a path: the binary form for ".blut" (float or half samples by
    // `half`), the exchange format of an exchange extension (see
    // exchangeFormatOf; default writer options, refused with a message and
    // no file written when the format cannot hold the table), else the text
    // form; I/O filters of the "LUTio" table apply first.
    bool save(const char *path, bool half) const;
    // Empties the table, then loads ".lut" (text), ".blut" (binary) or an
    // exchange file by its extension (other extensions fail unless a filter
    // serves them); the result is that of correctLUT after a successful read.
    // With `headerOnly` an exchange file is only checked as far as its
    // header and the table stays empty (see loadExchange).
    bool load(const char *path, bool headerOnly);
    // Writes the binary form ("ZLUT"), samples as float32 or half16.
    bool saveBinary(FILE *fp, bool half) const;
    // Reads the binary form; with `headerOnly` stops before the samples.
    bool loadBinary(FILE *fp, bool headerOnly);

    // ------------------------------------------------------------ exchange files
    // The formats other tools exchange. Each maps onto the model as follows.
    //  ".cube": LUT_1D_SIZE and/or LUT_3D_SIZE, DOMAIN_MIN / DOMAIN_MAX (the
    //    input domain of the file's first table), LUT_1D_INPUT_RANGE /
    //    LUT_3D_INPUT_RANGE, TITLE and "#" comments; rows of three numbers,
    //    the 1D rows first, the cube red fastest. A 1D file gives "C" (all
    //    columns equal) or "RGB"; a cube over 0-1 gives "3D"; a cube over
    //    another domain gives "3D+1D" with the pre-table 0, 1 over it; a 1D
    //    and a cube in one file give "3D+1D" whose pre-table is the 1D
    //    (its columns must be equal) rescaled into the cube's input range.
    //  ".spi1d": From, Length, Components 1 ("C") or 3 ("RGB").
    //  ".spi3d": a cube over 0-1 of "i j k r g b" rows in any order.
    //  ".3dl": the input mesh line, then integer (or, in the float form,
    //    real) triples, blue fastest; the optional "3DMESH" / "Mesh a b"
    //    header gives the output depth, else it is the smallest of 8, 10,
    //    12 and 16 bits that holds the largest value. A mesh that is not
    //    evenly spaced (any entry 2 or more steps of the input depth away)
    //    is the pre-table of a "3D+1D" table.
    //  ".csp": the pre-LUT shaper (equal for the three channels) and a 1D
    //    table or a cube. A two-point shaper is a straight map (for a 1D
    //    table it must map its inputs onto 0 and 1, giving the domain);
    //    more points are a smooth curve through them (cubic, slopes from the
    //    neighbouring points, like the tools that write the format),
    //    resampled into a 65536-sample pre-table over the shaper's inputs.
    // Every domain must be the same for the three channels. Values must be
    // finite. A file whose sizes exceed those of the model (65536 samples,
    // cube edge 256) is refused before anything is allocated. A malformed
    // file gives a message with its line number and false.
    // On saving, a table the format cannot hold is refused with a message
    // (false, nothing written): log sampling, an output range other than
    // 0-1, an alpha table ("A", "RGBA", "All"), a single-channel table, an
    // empty table, a plain cube with a domain other than 0-1; per format,
    // 1D tables in ".spi3d" and ".3dl", cubes in ".spi1d", a domain or a
    // pre-table in ".spi3d", and in ".3dl" a pre-table other than one sample
    // per cube edge over 0-1 (written as the mesh); the integer ".3dl" form
    // refuses values outside 0-1 and a depth readers would not infer (see
    // ExchangeOptions::outBits). ".cube" writes a cube with a straight 0-1
    // pre-table as DOMAIN_MIN / DOMAIN_MAX and any other pre-table as a 1D
    // table before the cube (with LUT_1D_INPUT_RANGE, the form other tools
    // read). Black and white points, the specific format, the half flag
    // and the log bias are display settings, not table content, and are not
    // written.
    enum ExchangeFormat : int32
    {
        EXCHANGE_NONE = 0,
        EXCHANGE_CUBE = 1,  // ".cube"
        EXCHANGE_SPI1D = 2, // ".spi1d"
        EXCHANGE_SPI3D = 3, // ".spi3d"
        EXCHANGE_3DL = 4,   // ".3dl"
        EXCHANGE_CSP = 5,   // ".csp"
    };
    // Options of the exchange writers.
    struct ExchangeOptions
    {
        // ".3dl": write the float form (real mesh and triples) instead of
        // the integer form. Other formats ignore it.
        bool floatForm = false;
        // ".3dl" integer form: the output depth in bits (8, 10, 12 or 16;
        // 0 means 16). The mesh is 10-bit. Readers infer the depth from the
        // largest value, so a table whose largest value would read as a
        // lower depth is refused (8 bits always reads back).
        int outBits = 0;
    };
    // What an exchange file's header says, for display.
    struct ExchangeHeader
    {
        ExchangeFormat format = EXCHANGE_NONE;
        std::string title;       // TITLE (".cube"), first metadata line (".csp")
        int size1D = 0;          // 1D entries (".cube", ".spi1d", ".csp")
        int size3D = 0;          // cube edge
        int components = 0;      // ".spi1d" components
        int shaperPoints = 0;    // ".csp" shaper points, ".3dl" mesh entries
        int inBits = 0;          // ".3dl" integer form: mesh depth
        int outBits = 0;         // ".3dl" integer form: output depth
        bool floatForm = false;  // ".3dl" float form
        float domainMin[3] = {0.0f, 0.0f, 0.0f}; // input domain of the file
        float domainMax[3] = {1.0f, 1.0f, 1.0f};
    };
    // The exchange format of a path by its extension, compared without
    // regard to case (".CUBE" is a cube file); EXCHANGE_NONE for any other
    // extension (".lut" and ".blut" included) or a null path.
    static ExchangeFormat exchangeFormatOf(const char *path);
    // The extension of a format (".cube"...), "" for EXCHANGE_NONE.
    static const char *exchangeExtension(ExchangeFormat format);
    // Replaces this table by the exchange file read from `fp` (the table is
    // reset first). With `headerOnly` only the header is read: `header` is
    // filled and the table stays empty. `header` may be null. False, with a
    // message naming the line, on a malformed file or one the model cannot
    // hold (the table is then reset). Does not run correctLUT.
    bool loadExchange(FILE *fp, ExchangeFormat format, bool headerOnly, ExchangeHeader *header = nullptr);
    // True when `format` can hold this table with the writer `options`
    // (default options without them); otherwise prints why and returns false
    // (see the list above).
    bool canSaveExchange(ExchangeFormat format, const ExchangeOptions &options) const;
    bool canSaveExchange(ExchangeFormat format) const;
    // Writes this table in `format` to `fp` with the writer `options`
    // (default options without them). Refused as canSaveExchange refuses,
    // before anything is written; false also on a write error.
    bool saveExchange(FILE *fp, ExchangeFormat format, const ExchangeOptions &options) const;
    bool saveExchange(FILE *fp, ExchangeFormat format) const;
    // As save(path, false), with `options` for the exchange writers.
    bool save(const char *path, const ExchangeOptions &options) const;

private:
    // Library code outside the class reaches the private steps below
    // through LookupAccess; the unit tests through LookupTestAccess.
    friend struct imb_detail::LookupAccess;
    friend struct imb_detail::LookupTestAccess;

    // Pre-table rule of 3D+1D cubes: v clamped to the domain, position
    // (v - dmin) scale with scale = last / (dmax - dmin), interpolated in
    // `table` of last + 1 samples.
    void lerpPreLUT(float &v, float scale, const double *table, int last) const;
    // Repairs a loaded table: a reversed domain swaps domain and range ends;
    // an empty domain gives false; with log sampling a minimum below 1e-6
    // becomes 1e-6 (false when the maximum is below 1e-6 too); the pre-table
    // of 3D+1D is clamped to [0, 1]. True when the table is usable.
    bool correctLUT();
    // Prepares a grid of `size` equal RGB triples in `grid` for a colour
    // transform: type RGB (log flag as !linear), 3 tracks of `size`, no cube.
    // Linear: lo + i (hi - lo)/(size - 1). Log: the domain becomes [lo, hi],
    // values e^(ln lo + i (ln hi - ln lo)/(size - 1)) - lo and the pre-shift
    // lo. Values are clamped to [lo, hi] before the shift.
    void prep1DLUT(float *grid, int size, bool linear, double lo, double hi);
    // Allocates the padded cube of edge 64 (96 when `large`), destroys the
    // tracks and fills every sample, padding included, with its own grid
    // coordinate per axis (red fastest). Linear: lo + i (hi - lo)/(edge - 1)
    // clamped to [lo, hi], pre-shift 0. Log: the domain becomes [lo, hi], the
    // coordinate is exp(ln lo + i (ln hi - ln lo)/(edge - 1)) - lo (unclamped)
    // and the pre-shift lo. The type is left to the caller.
    void prep3DLUT(bool linear, double lo, double hi, double unused, int large);
    // Allocation of the sampling interval from src, then dest; the lg2
    // default for floating-point dest spaces; else 0-1 uniform with false.
    static bool fetchAllocationVars(const IMB_OCIO::ColorSpace *src, const IMB_OCIO::ColorSpace *dest,
                                    bool &uniform, double &min, double &max, double &offset);
    // Both path-level saves: filters, exchange formats, binary and text.
    bool saveByPath(const char *path, bool half, const ExchangeOptions &options) const;
    // Text-form helpers of save(FILE *): the 1D blocks and the cube block.
    void save1D(FILE *fp) const;
    void save3D(FILE *fp) const;

    // Allocates a zeroed padded cube of edge n (nothing for n < 1) and
    // records the edge.
    void alloc3DTable(int n);
    void free3DTable();
    // Track count rule of setType for a type word.
    void setTrackCountFor(int32 type);

    std::unique_ptr<CRV_Clip> myClip;
    IMB_LookupType myType;
    IMB_DataFormat mySpecificFormat;
    std::unique_ptr<float[]> my3DTable;
    int32 my3DSize;
    float myBlackPoint;
    float myWhitePoint;
    float myDomainMin;
    float myDomainMax;
    float myRangeMin;
    float myRangeMax;
    float myLogBias;
    float myPreShift;
    void *myTextureID;
    void *myPreLutID;
    bool myHalfPrec;
};
