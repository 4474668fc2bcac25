// The binary lookup-table form ("ZLUT"): exact bytes written, every check of
// the reader, float and half samples.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/CRV_Clip.h>
#include <IMB/platform/half16.h>

#include <gtest/gtest.h>

#include "LookupTestUtil.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{
using namespace lookup_test;

// Builds a file image field by field, little-endian.
struct Bytes
{
    std::string data;

    Bytes &raw(const char *s, std::size_t n)
    {
        data.append(s, n);
        return *this;
    }
    Bytes &u8(unsigned v)
    {
        data.push_back(static_cast<char>(v));
        return *this;
    }
    Bytes &u16(unsigned v) { return u8(v & 0xff).u8((v >> 8) & 0xff); }
    Bytes &i32(int32_t v)
    {
        const uint32_t u = static_cast<uint32_t>(v);
        return u8(u & 0xff).u8((u >> 8) & 0xff).u8((u >> 16) & 0xff).u8(u >> 24);
    }
    Bytes &f32(float v)
    {
        uint32_t u;
        std::memcpy(&u, &v, 4);
        return i32(static_cast<int32_t>(u));
    }
    // Magic, version, format, type, domain 0-1, range 0-1, black 0, white 1,
    // and the log bias for version 3.
    Bytes &header(int32_t version, int32_t format, int32_t type, float bias = 0.0f)
    {
        raw("ZLUT", 4).i32(version).i32(format).i32(type);
        for (float v : {0.0f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f})
            f32(v);
        if (version == 3)
            f32(bias);
        return *this;
    }
};

std::string saveBinary(const IMB_Lookup &lut, bool half)
{
    return writtenBy([&](FILE *fp) { return lut.saveBinary(fp, half); });
}

// Loads `bytes`; the messages printed go to `messages`.
bool loadBinary(IMB_Lookup &lut, const std::string &bytes, std::string &messages, bool headerOnly = false)
{
    return readFrom(bytes, messages, [&](FILE *fp) { return lut.loadBinary(fp, headerOnly); });
}

// Loads `bytes` expecting no message.
bool loadBinary(IMB_Lookup &lut, const std::string &bytes, bool headerOnly = false)
{
    std::string messages;
    const bool ok = loadBinary(lut, bytes, messages, headerOnly);
    EXPECT_EQ(messages, "");
    return ok;
}

std::string dataFile(const char *name)
{
    const std::string path = std::string(IMB_TEST_DATA_DIR) + "/lookup/binary/" + name;
    const std::string bytes = readFile(path);
    EXPECT_NE(bytes, "") << path;
    return bytes;
}
} // namespace

// ---------------------------------------------------------------- writer

TEST(LookupBinaryWriter, RgbTableIsWrittenFieldByFieldLittleEndian)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(2);
    CRV_Clip clip = lut.getLUT();
    for (int t = 0; t < 3; ++t)
    {
        clip.getTrack(t)->getData()[0] = 0.1 * t;
        clip.getTrack(t)->getData()[1] = 1.0 + t;
    }
    lut.setLUT(clip);
    lut.setSpecificFormat(IMB_INT8);
    lut.setDomain(-1.0f, 2.0f);
    lut.setRange(0.25f, 0.5f);
    lut.setBlackWhitePoints(0.125f, 0.75f);
    lut.setLogBias(5.0f); // version 1: not stored

    Bytes want;
    want.raw("ZLUT", 4).i32(1).i32(0).i32(IMB_LUT_RGB);
    for (float v : {-1.0f, 2.0f, 0.25f, 0.5f, 0.125f, 0.75f})
        want.f32(v);
    want.i32(2).i32(3).u8('f');
    for (int t = 0; t < 3; ++t)
        want.f32(float(0.1 * t)).f32(float(1.0 + t));
    EXPECT_EQ(saveBinary(lut, false), want.data);
}

TEST(LookupBinaryWriter, HalfSamplesUseKindHAndZeroIsWrittenAsZeroBits)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_C);
    CRV_Clip clip;
    clip.setTrackLength(4);
    clip.addTrack("t");
    double *s = clip.getTrack(0)->getData();
    s[0] = -0.0;
    s[1] = 0.1;    // half 0x2E66
    s[2] = 1.0;    // 0x3C00
    s[3] = 1e300;  // beyond float: +infinity 0x7C00
    lut.setLUT(clip);
    Bytes want;
    want.header(1, 5, IMB_LUT_C).i32(4).i32(1).u8('h').u16(0).u16(0x2E66).u16(0x3C00).u16(0x7C00);
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
    Bytes want;
    want.header(3, 5, IMB_LUT_3D | IMB_LUT_LOG_SAMPLING, -4.0f).i32(2).u8('f');
    for (float v : rgb)
        want.f32(v);
    EXPECT_EQ(saveBinary(lut, false), want.data);

    Bytes wantHalf;
    wantHalf.header(3, 5, IMB_LUT_3D | IMB_LUT_LOG_SAMPLING, -4.0f).i32(2).u8('h');
    for (float v : rgb)
        wantHalf.u16(v == 0.0f ? 0 : half16(v).bits());
    EXPECT_EQ(saveBinary(lut, true), wantHalf.data);
}

TEST(LookupBinaryWriter, CubeWithPreTableWritesBothSections)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_3D_1D);
    lut.setTableSize(2);
    CRV_Clip clip = lut.getLUT();
    clip.getTrack(0)->getData()[1] = 1.0;
    lut.setLUT(clip);
    const float rgb[3] = {0.5f, 0.25f, 0.125f};
    lut.set3DLUT(1, rgb);
    Bytes want;
    want.header(3, 5, IMB_LUT_3D_1D, 0.0f).i32(2).i32(1).u8('f').f32(0).f32(1);
    want.i32(1).u8('f').f32(0.5f).f32(0.25f).f32(0.125f);
    EXPECT_EQ(saveBinary(lut, false), want.data);
}

// ---------------------------------------------------------------- reader checks

TEST(LookupBinaryReader, VersionFourPrintsTheVersionMessageAndFails)
{
    IMB_Lookup lut;
    std::string messages;
    EXPECT_FALSE(loadBinary(lut, Bytes().header(4, 5, IMB_LUT_ALL).data, messages));
    EXPECT_EQ(messages, "LUT reader is version 3: LUT is version 4.\n");
    EXPECT_FALSE(loadBinary(lut, dataFile("version4.blut"), messages));
    EXPECT_EQ(messages, "LUT reader is version 3: LUT is version 4.\n");
    EXPECT_FALSE(loadBinary(lut, Bytes().raw("ZLUT", 4).i32(1000).data, messages));
    EXPECT_EQ(messages, "LUT reader is version 3: LUT is version 1000.\n");
}

namespace
{
struct BadBinary
{
    const char *name;
    std::string bytes;
};

class LookupBinaryReaderRefuses : public testing::TestWithParam<BadBinary>
{
};
} // namespace

TEST_P(LookupBinaryReaderRefuses, SilentlyAndWhateverTheHeaderOnlyFlag)
{
    for (bool headerOnly : {false, true})
    {
        IMB_Lookup lut;
        EXPECT_FALSE(loadBinary(lut, GetParam().bytes, headerOnly)) << headerOnly;
    }
}

namespace
{
std::vector<BadBinary> badBinaries()
{
    const int32_t all = IMB_LUT_ALL;
    return {
        {"Empty", ""},
        {"ShortMagic", "ZLU"},
        {"WrongMagic", Bytes().raw("BLUT", 4).i32(1).data},
        {"LowerCaseMagic", Bytes().header(1, 5, all).data.replace(0, 4, "zlut")},
        {"MissingVersion", "ZLUT"},
        {"TruncatedHeader", Bytes().header(1, 5, all).data.substr(0, 30)},
        {"TruncatedLogBias", Bytes().header(3, 5, all, 1.0f).data.substr(0, 42)},
        {"TypeZero", Bytes().header(1, 5, 0).i32(2).i32(1).u8('f').f32(0).f32(1).data},
        {"Type321", Bytes().header(1, 5, 321).i32(2).i32(1).u8('f').f32(0).f32(1).data},
        {"NegativeType", Bytes().header(1, 5, -47).data},
        {"Format6", Bytes().header(1, 6, all).i32(2).i32(1).u8('f').f32(0).f32(1).data},
        {"NegativeFormat", Bytes().header(1, -1, all).i32(2).i32(1).u8('f').f32(0).f32(1).data},
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
}
} // namespace

INSTANTIATE_TEST_SUITE_P(All, LookupBinaryReaderRefuses, testing::ValuesIn(badBinaries()),
                         [](const testing::TestParamInfo<BadBinary> &info) { return info.param.name; });

TEST(LookupBinaryReader, TruncatedSamplesFailWithoutAMessage)
{
    IMB_Lookup lut;
    EXPECT_FALSE(loadBinary(lut, Bytes().header(1, 5, IMB_LUT_RGB).i32(2).i32(3).u8('f').f32(0).f32(1).f32(2).data));
    EXPECT_FALSE(loadBinary(lut, Bytes().header(2, 5, IMB_LUT_3D).i32(2).u8('h').u16(0).data));
    EXPECT_FALSE(lut.is3DLUT());
    // A cube edge whose samples the stream does not hold is refused before
    // anything is allocated for it.
    EXPECT_FALSE(loadBinary(lut, Bytes().header(2, 5, IMB_LUT_3D).i32(256).u8('f').data));
    EXPECT_FALSE(lut.is3DLUT());
}

TEST(LookupBinaryReader, LargestSizesAreAccepted)
{
    IMB_Lookup lut;
    EXPECT_TRUE(loadBinary(lut, Bytes().header(2, 5, IMB_LUT_3D).i32(256).u8('f').data, true));
    EXPECT_FALSE(lut.isHalfPrec());
    IMB_Lookup tracks;
    EXPECT_TRUE(loadBinary(tracks, Bytes().header(1, 5, IMB_LUT_RGBA).i32(65536).i32(4).u8('h').data, true));
    EXPECT_EQ(tracks.getTableSize(), 65536);
    EXPECT_EQ(tracks.getNumChannels(), 4);
    EXPECT_TRUE(tracks.isHalfPrec());
    EXPECT_EQ(track(tracks, 3), std::vector<double>(65536, 0.0));

    // The full 1D maximum with samples.
    Bytes full;
    full.header(1, 5, IMB_LUT_ALL).i32(65536).i32(1).u8('f');
    for (int i = 0; i < 65536; ++i)
        full.f32(i / 65535.0f);
    IMB_Lookup big;
    ASSERT_TRUE(loadBinary(big, full.data));
    EXPECT_EQ(track(big, 0).back(), 1.0);
    EXPECT_EQ(track(big, 0)[32768], double(32768 / 65535.0f));
}

TEST(LookupBinaryReader, LogBiasIsClampedAndOnlyVersionThreeHasOne)
{
    IMB_Lookup lut;
    ASSERT_TRUE(loadBinary(lut, dataFile("log_bias.blut")));
    EXPECT_EQ(lut.getLogBias(), 20.0f);
    EXPECT_EQ(lut.getType(), IMB_LUT_C | IMB_LUT_LOG_SAMPLING);
    EXPECT_EQ(track(lut, 0), (std::vector<double>{0, 1}));
    IMB_Lookup low;
    ASSERT_TRUE(loadBinary(low, Bytes().header(3, 5, IMB_LUT_ALL, -25.0f).i32(1).i32(1).u8('f').f32(0.5f).data));
    EXPECT_EQ(low.getLogBias(), -20.0f);
    // Version 2: the four bytes after white are the track length.
    IMB_Lookup v2;
    ASSERT_TRUE(loadBinary(v2, Bytes().header(2, 5, IMB_LUT_ALL).i32(1).i32(1).u8('f').f32(0.5f).data));
    EXPECT_EQ(v2.getLogBias(), 0.0f);
    EXPECT_EQ(track(v2, 0), std::vector<double>{0.5});
}

TEST(LookupBinaryReader, HeaderFieldsAreStoredAsReadWithoutOrdering)
{
    Bytes b;
    b.raw("ZLUT", 4).i32(1).i32(1).i32(IMB_LUT_ALL);
    for (float v : {2.0f, 1.0f, 0.75f, 0.25f, 0.0625f, 0.5f})
        b.f32(v);
    b.i32(1).i32(1).u8('f').f32(3.0f);
    IMB_Lookup lut;
    ASSERT_TRUE(loadBinary(lut, b.data));
    float lo, hi;
    lut.getDomain(lo, hi);
    EXPECT_EQ(lo, 2.0f);
    EXPECT_EQ(hi, 1.0f);
    lut.getRange(lo, hi);
    EXPECT_EQ(lo, 0.75f);
    EXPECT_EQ(hi, 0.25f);
    EXPECT_EQ(lut.getBlackPoint(), 0.0625f);
    EXPECT_EQ(lut.getWhitePoint(), 0.5f);
    IMB_DataFormat f;
    ASSERT_TRUE(lut.hasSpecificFormat(f));
    EXPECT_EQ(f, IMB_INT16);
}

TEST(LookupBinaryReader, HeaderOnlyStopsBeforeTheSamples)
{
    IMB_Lookup lut;
    ASSERT_TRUE(loadBinary(lut, Bytes().header(1, 5, IMB_LUT_RGB).i32(3).i32(3).u8('h').data, true));
    EXPECT_EQ(lut.getType(), IMB_LUT_RGB);
    EXPECT_EQ(lut.getTableSize(), 3);
    EXPECT_EQ(lut.getNumChannels(), 3);
    EXPECT_TRUE(lut.isHalfPrec());
    // 3D+1D stops after the pre-table's header: the cube section is not read.
    IMB_Lookup pre;
    ASSERT_TRUE(loadBinary(pre, Bytes().header(3, 5, IMB_LUT_3D_1D).i32(2).i32(1).u8('f').data, true));
    EXPECT_EQ(pre.getNumChannels(), 1);
    EXPECT_FALSE(pre.is3DLUT());
}

TEST(LookupBinaryReader, CubeIsPaddedLikeSet3DLUT)
{
    const int n = 3;
    std::vector<float> rgb;
    Bytes b;
    b.header(2, 5, IMB_LUT_3D).i32(n).u8('f');
    for (int i = 0; i < n * n * n * 3; ++i)
    {
        rgb.push_back(i * 0.01f);
        b.f32(i * 0.01f);
    }
    IMB_Lookup lut;
    ASSERT_TRUE(loadBinary(lut, b.data));
    expectPaddedCube(lut, rgb, n);
}

TEST(LookupBinaryReader, CheckedInFilesLoad)
{
    IMB_Lookup rgb;
    ASSERT_TRUE(loadBinary(rgb, dataFile("rgb_float.blut")));
    EXPECT_EQ(rgb.getType(), IMB_LUT_RGB);
    EXPECT_FALSE(rgb.isHalfPrec());
    EXPECT_EQ(track(rgb, 2), (std::vector<double>{1, 0.5, 0.25, 0}));

    IMB_Lookup all;
    ASSERT_TRUE(loadBinary(all, dataFile("all_half.blut")));
    EXPECT_TRUE(all.isHalfPrec());
    EXPECT_EQ(all.getNumChannels(), 1);
    EXPECT_EQ(track(all, 0), (std::vector<double>{0, 0.5, 1}));

    IMB_Lookup cube;
    ASSERT_TRUE(loadBinary(cube, dataFile("cube_float.blut")));
    EXPECT_EQ(cubeAt(cube, 1, 1, 0, 0), 1.0f);
    EXPECT_EQ(cubeAt(cube, 1, 1, 0, 2), 0.0f);
    EXPECT_EQ(cubeAt(cube, 2, 2, 2, 1), 1.0f); // padding

    IMB_Lookup pre;
    ASSERT_TRUE(loadBinary(pre, dataFile("cube_pre_half.blut")));
    EXPECT_EQ(pre.getType(), IMB_LUT_3D_1D);
    EXPECT_EQ(pre.getLogBias(), 2.5f);
    EXPECT_TRUE(pre.isHalfPrec());
    EXPECT_EQ(track(pre, 0), (std::vector<double>{0, 0.25, 1}));
    EXPECT_EQ(pre.get3DSize(), 3);
    EXPECT_EQ(cubeAt(pre, 2, 1, 0, 0), 0.5f);
    EXPECT_EQ(cubeAt(pre, 2, 1, 0, 1), 0.25f);

    IMB_Lookup empty; // cube edge 0 loads as no cube
    ASSERT_TRUE(loadBinary(empty, dataFile("cube_empty.blut")));
    EXPECT_EQ(empty.getType(), IMB_LUT_3D);
    EXPECT_FALSE(empty.is3DLUT());
    EXPECT_EQ(empty.get3DSize(), 0);
}

// ---------------------------------------------------------------- round trips

TEST(LookupBinaryRoundTrip, FloatSamplesComeBackAsFloats)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_RGB);
    lut.setTableSize(5);
    CRV_Clip clip = lut.getLUT();
    for (int t = 0; t < 3; ++t)
        for (int i = 0; i < 5; ++i)
            clip.getTrack(t)->getData()[i] = (i + 1) / (7.0 + t);
    lut.setLUT(clip);
    lut.setLogSampling(true);
    lut.setDomain(0.01f, 10.0f);
    lut.setLogBias(1.5f);
    IMB_Lookup back;
    ASSERT_TRUE(loadBinary(back, saveBinary(lut, false)));
    EXPECT_EQ(back.getType(), IMB_LUT_RGB | IMB_LUT_LOG_SAMPLING);
    EXPECT_EQ(back.getLogBias(), 1.5f);
    EXPECT_FALSE(back.isHalfPrec());
    for (int t = 0; t < 3; ++t)
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(track(back, t)[i], double(float((i + 1) / (7.0 + t))));
}

TEST(LookupBinaryRoundTrip, HalfSamplesComeBackRoundedToHalfAndFlagged)
{
    IMB_Lookup lut;
    lut.setType(IMB_LUT_C);
    CRV_Clip clip;
    clip.setTrackLength(4);
    clip.addTrack("t");
    // 0.1 rounds to 0.0999755859375 (0x2E66); 1/3 to 0.333251953125 (0x3555);
    // 65504 is the largest half; 1e-8 is below the smallest denormal.
    const double in[4] = {0.1, 1.0 / 3.0, 65504.0, 1e-8};
    const double want[4] = {0.0999755859375, 0.333251953125, 65504.0, 0.0};
    for (int i = 0; i < 4; ++i)
        clip.getTrack(0)->getData()[i] = in[i];
    lut.setLUT(clip);
    IMB_Lookup back;
    ASSERT_TRUE(loadBinary(back, saveBinary(lut, true)));
    EXPECT_TRUE(back.isHalfPrec());
    EXPECT_EQ(track(back, 0), std::vector<double>(want, want + 4));

    std::vector<float> rgb(27 * 3);
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = i / 81.0f;
    IMB_Lookup cube;
    cube.set3DLUT(3, rgb.data());
    IMB_Lookup cubeBack;
    ASSERT_TRUE(loadBinary(cubeBack, saveBinary(cube, true)));
    EXPECT_TRUE(cubeBack.isHalfPrec());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(cubeAt(cubeBack, i, 2, 1, 0), float(half16(rgb[3 * (i + 3 * 2 + 9 * 1)])));
}
