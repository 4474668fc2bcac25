// The binary lookup-table form ("ZLUT"): exact bytes written, every check of
// the reader, float and half samples.
#include "LookupTestUtil.h"

namespace
{
using namespace lookup_test;

// Builds a file image field by field, little-endian.
struct Bytes
{
    std::string data;

    Bytes &raw(const char *s, std::size_t n) { return data.append(s, n), *this; }
    Bytes &u8(unsigned v) { return data.push_back(static_cast<char>(v)), *this; }
    Bytes &u16(unsigned v) { return u8(v & 0xff).u8((v >> 8) & 0xff); }
    Bytes &i32(int32_t v) { return u16(static_cast<uint32_t>(v) & 0xffff).u16(static_cast<uint32_t>(v) >> 16); }
    Bytes &f32(float v)
    {
        uint32_t u;
        std::memcpy(&u, &v, 4);
        return i32(static_cast<int32_t>(u));
    }
    // Magic, version, format, type, then domain, range, black and white
    // (0-1, 0-1, 0, 1 unless given), and the log bias for version 3.
    Bytes &header(int32_t version, int32_t format, int32_t type, float bias = 0.0f,
                  std::vector<float> fields = {0.0f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f})
    {
        raw("ZLUT", 4).i32(version).i32(format).i32(type);
        for (float v : fields)
            f32(v);
        return version == 3 ? f32(bias) : *this;
    }
};

std::string saveBinary(const IMB_Lookup &lut, bool half)
{
    return writtenBy([&](FILE *fp) { return lut.saveBinary(fp, half); });
}

bool loadBinary(IMB_Lookup &lut, const std::string &bytes, bool headerOnly = false, std::string *messages = nullptr)
{
    return readFrom(bytes, messages, [&](FILE *fp) { return lut.loadBinary(fp, headerOnly); });
}

std::string dataFile(const char *name)
{
    const std::string bytes = readFile(dataPath(std::string("binary/") + name));
    EXPECT_NE(bytes, "") << name;
    return bytes;
}
} // namespace

TEST(LookupBinaryWriter, RgbTableIsWrittenFieldByFieldLittleEndian)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(2);
    for (int t = 0; t < 3; ++t)
        for (int i = 0; i < 2; ++i)
            lut.getRawLUT(T(1 << t))[i] = i ? 1.0 + t : 0.1 * t;
    lut.setSpecificFormat(IMB_INT8);
    lut.setDomain(-1.0f, 2.0f);
    lut.setRange(0.25f, 0.5f);
    lut.setBlackWhitePoints(0.125f, 0.75f);
    lut.setLogBias(5.0f); // version 1: not stored
    Bytes want;
    want.header(1, 0, IMB_LUT_RGB, 0.0f, {-1.0f, 2.0f, 0.25f, 0.5f, 0.125f, 0.75f}).i32(2).i32(3).u8('f');
    for (int t = 0; t < 3; ++t)
        want.f32(float(0.1 * t)).f32(float(1.0 + t));
    EXPECT_EQ(saveBinary(lut, false), want.data);
}

TEST(LookupBinaryWriter, HalfSamplesUseKindHRoundToNearestAndZeroIsWrittenAsZeroBits)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_C);
    CRV_Clip clip;
    clip.setTrackLength(7);
    // Beyond float: +infinity; 65504 is the largest half; 1e-8 is below the
    // smallest denormal.
    const double in[7] = {-0.0, 0.1, 1.0, 1e300, 1.0 / 3.0, 65504.0, 1e-8};
    std::copy(in, in + 7, clip.addTrack("t")->getData());
    lut.setLUT(clip);
    Bytes want;
    want.header(1, 5, IMB_LUT_C).i32(7).i32(1).u8('h');
    for (unsigned bits : {0x0000, 0x2E66, 0x3C00, 0x7C00, 0x3555, 0x7BFF, 0x0000})
        want.u16(bits);
    EXPECT_EQ(saveBinary(lut, true), want.data);
}

TEST(LookupBinaryWriter, VersionThreeCarriesTheLogBiasAndCubesStoreOnlyRealTriples)
{
    IMB_Lookup lut;
    std::vector<float> rgb;
    for (int i = 0; i < 8 * 3; ++i)
        rgb.push_back(i / 32.0f);
    lut.set3DLUT(2, rgb.data());
    lut.setLogSampling(true);
    lut.setLogBias(-4.0f);
    Bytes want, wantHalf;
    want.header(3, 5, IMB_LUT_3D | IMB_LUT_LOG_SAMPLING, -4.0f).i32(2).u8('f');
    wantHalf.header(3, 5, IMB_LUT_3D | IMB_LUT_LOG_SAMPLING, -4.0f).i32(2).u8('h');
    for (float v : rgb)
        want.f32(v), wantHalf.u16(v == 0.0f ? 0 : half16(v).bits());
    EXPECT_EQ(saveBinary(lut, false), want.data);
    EXPECT_EQ(saveBinary(lut, true), wantHalf.data);

    // A cube with a pre-table writes both sections.
    IMB_Lookup pre;
    pre.setType(IMB_LUT_3D_1D);
    pre.setTableSize(2);
    pre.getRawLUT(T(32))[1] = 1.0;
    const float one[3] = {0.5f, 0.25f, 0.125f};
    pre.set3DLUT(1, one);
    Bytes both;
    both.header(3, 5, IMB_LUT_3D_1D, 0.0f).i32(2).i32(1).u8('f').f32(0).f32(1);
    both.i32(1).u8('f').f32(0.5f).f32(0.25f).f32(0.125f);
    EXPECT_EQ(saveBinary(pre, false), both.data);
}

// Only a version above 3 says why; every other malformed file fails silently.
TEST(LookupBinaryReader, RefusesMalformedFilesWhateverTheHeaderOnlyFlag)
{
    const int32_t all = IMB_LUT_ALL;
    const std::string oneTrack = Bytes().i32(2).i32(1).u8('f').f32(0).f32(1).data;
    const std::string v4 = "LUT reader is version 3: LUT is version 4.\n";
    const struct
    {
        const char *name;
        std::string bytes, messages;
    } cases[] = {
        {"Version4", Bytes().header(4, 5, IMB_LUT_ALL).data, v4},
        {"Version4File", dataFile("version4.blut"), v4},
        {"Version1000", Bytes().raw("ZLUT", 4).i32(1000).data, "LUT reader is version 3: LUT is version 1000.\n"},
        {"Empty", ""},
        {"ShortMagic", "ZLU"},
        {"WrongMagic", Bytes().raw("BLUT", 4).i32(1).data},
        {"LowerCaseMagic", Bytes().header(1, 5, all).data.replace(0, 4, "zlut")},
        {"MissingVersion", "ZLUT"},
        {"TruncatedHeader", Bytes().header(1, 5, all).data.substr(0, 30)},
        {"TruncatedLogBias", Bytes().header(3, 5, all, 1.0f).data.substr(0, 42)},
        {"TypeZero", Bytes().header(1, 5, 0).data + oneTrack},
        {"Type321", Bytes().header(1, 5, 321).data + oneTrack},
        {"NegativeType", Bytes().header(1, 5, -47).data},
        {"Format6", Bytes().header(1, 6, all).data + oneTrack},
        {"NegativeFormat", Bytes().header(1, -1, all).data + oneTrack},
        {"TrackLengthZero", Bytes().header(1, 5, all).i32(0).i32(1).u8('f').data},
        {"TrackLength65537", Bytes().header(1, 5, all).i32(65537).i32(1).u8('f').data},
        {"NegativeTrackLength", Bytes().header(1, 5, all).i32(-2).i32(1).u8('f').data},
        {"TrackCountZero", Bytes().header(1, 5, all).i32(2).i32(0).u8('f').data},
        {"TrackCountFive", Bytes().header(1, 5, all).i32(2).i32(5).u8('f').data},
        {"SampleKindD", Bytes().header(1, 5, all).i32(2).i32(1).u8('d').data},
        {"MissingSampleKind", Bytes().header(1, 5, all).i32(2).i32(1).data},
        {"CubeEdge257", Bytes().header(2, 5, IMB_LUT_3D).i32(257).u8('f').data},
        {"NegativeCubeEdge", Bytes().header(2, 5, IMB_LUT_3D).i32(-1).u8('f').data},
        {"CubeSampleKindF32", Bytes().header(2, 5, IMB_LUT_3D).i32(1).u8('F').data},
        {"PreTableKindBad", Bytes().header(3, 5, IMB_LUT_3D_1D).i32(1).i32(1).u8(0).data},
    };
    for (const auto &c : cases)
        for (bool headerOnly : {false, true})
        {
            IMB_Lookup lut;
            std::string messages;
            EXPECT_FALSE(loadBinary(lut, c.bytes, headerOnly, &messages)) << c.name << " " << headerOnly;
            EXPECT_EQ(messages, c.messages) << c.name;
        }
    // Truncated samples fail too; a cube edge whose samples the stream does
    // not hold is refused before anything is allocated for it.
    IMB_Lookup lut;
    EXPECT_FALSE(loadBinary(lut, Bytes().header(1, 5, IMB_LUT_RGB).i32(2).i32(3).u8('f').f32(0).f32(1).f32(2).data));
    EXPECT_FALSE(loadBinary(lut, Bytes().header(2, 5, IMB_LUT_3D).i32(2).u8('h').u16(0).data));
    EXPECT_FALSE(lut.is3DLUT());
    EXPECT_FALSE(loadBinary(lut, Bytes().header(2, 5, IMB_LUT_3D).i32(256).u8('f').data));
    EXPECT_FALSE(lut.is3DLUT());
}

TEST(LookupBinaryReader, FieldsAreStoredAsReadAndHeaderOnlyStopsBeforeTheSamples)
{
    const char *const d = " domain 0 1 range 0 1 points 0 1 bias ";
    const struct
    {
        std::string bytes;
        bool headerOnly;
        std::string fields;
        const char *tracks; // null: not compared
    } cases[] = {
        // No ordering of domain or range.
        {Bytes().header(1, 1, IMB_LUT_ALL, 0, {2.0f, 1.0f, 0.75f, 0.25f, 0.0625f, 0.5f}).i32(1).i32(1).u8('f').f32(3).data,
         false, "type 47 tracks 1x1 cube 0 domain 2 1 range 0.75 0.25 points 0.0625 0.5 bias 0 format int16", "3"},
        // The log bias is clamped; only version 3 has one (in version 2 the
        // four bytes after white are the track length).
        {Bytes().header(3, 5, IMB_LUT_ALL, -25.0f).i32(1).i32(1).u8('f').f32(0.5f).data, false,
         std::string("type 47 tracks 1x1 cube 0") + d + "-20 format any", "0.5"},
        {Bytes().header(2, 5, IMB_LUT_ALL).i32(1).i32(1).u8('f').f32(0.5f).data, false,
         std::string("type 47 tracks 1x1 cube 0") + d + "0 format any", "0.5"},
        {dataFile("log_bias.blut"), false,
         "type 295 tracks 1x2 cube 0 domain 0.001 100 range 0 1 points 0 1 bias 20 format float32", "0 1"},
        // The largest sizes.
        {Bytes().header(2, 5, IMB_LUT_3D).i32(256).u8('f').data, true, std::string("type 64 tracks 0 cube 0") + d + "0 format any", ""},
        {Bytes().header(1, 5, IMB_LUT_RGBA).i32(65536).i32(4).u8('h').data, true,
         std::string("type 31 tracks 4x65536 cube 0") + d + "0 format any half", nullptr},
        {Bytes().header(1, 5, IMB_LUT_RGB).i32(3).i32(3).u8('h').data, true,
         std::string("type 23 tracks 3x3 cube 0") + d + "0 format any half", "0 0 0 | 0 0 0 | 0 0 0"},
        // 3D+1D stops after the pre-table's header: the cube section is not read.
        {Bytes().header(3, 5, IMB_LUT_3D_1D).i32(2).i32(1).u8('f').data, true,
         std::string("type 96 tracks 1x2 cube 0") + d + "0 format any", "0 0"},
        // The checked-in files; a cube edge 0 loads as no cube.
        {dataFile("cube_empty.blut"), false, std::string("type 64 tracks 0 cube 0") + d + "0 format any", ""},
        {dataFile("rgb_float.blut"), false, std::string("type 23 tracks 3x4 cube 0") + d + "0 format any",
         "0 0.25 0.5 1 | 0 0.5 0.75 1 | 1 0.5 0.25 0"},
        {dataFile("all_half.blut"), false, std::string("type 47 tracks 1x3 cube 0") + d + "0 format int8 half", "0 0.5 1"},
        {dataFile("cube_float.blut"), false, std::string("type 64 tracks 0 cube 2") + d + "0 format float32", ""},
        {dataFile("cube_pre_half.blut"), false, std::string("type 96 tracks 1x3 cube 3") + d + "2.5 format float16 half",
         "0 0.25 1"},
    };
    for (const auto &c : cases)
    {
        IMB_Lookup lut;
        ASSERT_TRUE(loadBinary(lut, c.bytes, c.headerOnly)) << c.fields;
        EXPECT_EQ(describe(lut), c.fields);
        if (c.tracks)
            EXPECT_EQ(describeTracks(lut), c.tracks) << c.fields;
    }
}

TEST(LookupBinaryReader, SamplesFillTracksAndThePaddedCube)
{
    Bytes full, b;
    full.header(1, 5, IMB_LUT_ALL).i32(65536).i32(1).u8('f');
    for (int i = 0; i < 65536; ++i)
        full.f32(i / 65535.0f);
    IMB_Lookup big, lut, pre;
    ASSERT_TRUE(loadBinary(big, full.data));
    EXPECT_EQ(track(big, 0).back(), 1.0);
    EXPECT_EQ(track(big, 0)[32768], double(32768 / 65535.0f));
    std::vector<float> rgb;
    b.header(2, 5, IMB_LUT_3D).i32(3).u8('f');
    for (int i = 0; i < 27 * 3; ++i)
        rgb.push_back(i * 0.01f), b.f32(i * 0.01f);
    ASSERT_TRUE(loadBinary(lut, b.data));
    expectPaddedCube(lut, rgb, 3);
    ASSERT_TRUE(loadBinary(pre, dataFile("cube_pre_half.blut")));
    EXPECT_EQ(cubeAt(pre, 2, 1, 0, 0), 0.5f);
    EXPECT_EQ(cubeAt(pre, 2, 1, 0, 1), 0.25f);
}
