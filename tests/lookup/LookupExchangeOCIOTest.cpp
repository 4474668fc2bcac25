// The exchange files against OpenColorIO's own readers of the formats: a
// table written here comes back with its kind, sizes and domain, and is
// applied to the same float image here and by OpenColorIO through a
// FileTransform of the same file; so are the files OpenColorIO's baker wrote
// (tests/data/lookup/baked) and hand-written ones (tests/data/lookup/exchange).
// 1D tables must agree within 1e-5, cubes (trilinear on both sides) within
// 1e-4. The images are 512 x 512 sweeping the table's domain with a 5% margin
// on each side, which puts several pixels in every cell of the largest cube
// tested (33); cube33.cube also runs on a 3840 x 2160 image.
#include "LookupTestUtil.h"

#include <OpenColorIO/OpenColorIO.h>

namespace OCIO = OCIO_NAMESPACE;
using namespace lookup_test;

namespace
{
// OpenColorIO applying `file` (in `dir`) to a copy of the image.
std::vector<float> applyThroughOCIO(const std::string &dir, const std::string &file, const std::vector<float> &px,
                                    int w, int h)
{
    OCIO::ClearAllCaches();
    OCIO::ConfigRcPtr config = OCIO::Config::CreateRaw()->createEditableCopy();
    config->setSearchPath(dir.c_str());
    OCIO::FileTransformRcPtr ft = OCIO::FileTransform::Create();
    ft->setSrc(file.c_str());
    ft->setInterpolation(OCIO::INTERP_LINEAR);
    std::vector<float> out = px;
    OCIO::PackedImageDesc desc(out.data(), w, h, 3);
    config->getProcessor(ft)->getOptimizedCPUProcessor(OCIO::OPTIMIZATION_NONE)->apply(desc);
    return out;
}

struct WrittenCase
{
    const char *name; // file name; its extension picks the format
    IMB_Lookup (*make)();
    float lo, hi;            // the table's domain, swept by the image
    double roundTrip;        // loaded back vs the original table
    double agreement;        // this library vs OpenColorIO on the file
    int type, size1D, size3D; // loaded back
};

IMB_Lookup rgb1D() { return table1D(false, 1024, -0.25f, 2.0f); }
IMB_Lookup shared1D() { return table1D(true, 4096, 0.0f, 1.0f); }
IMB_Lookup cube33() { return cube3D(33); }
IMB_Lookup rampPre() { return cubeWithPre(17, 2, -0.5f, 1.5f, true); }

// The integer .3dl form quantises to 16 bits; the .csp shaper is resampled
// into 65536 samples, exact at the pre-table's samples.
// A straight pre-table over 0-1 is no pre-table at all.
const WrittenCase theWrittenCases[] = {
    {"rgb1d.cube", rgb1D, -0.25f, 2.0f, 1e-7, 1e-5, IMB_LUT_RGB, 1024, 0},
    {"shared1d.cube", shared1D, 0.0f, 1.0f, 1e-7, 1e-5, IMB_LUT_C, 4096, 0},
    {"cube33.cube", cube33, 0.0f, 1.0f, 0.0, 1e-4, IMB_LUT_3D, 0, 33},
    {"logpre.cube", [] { return cubeWithPre(17, 256, 0.0f, 8.0f, false); }, 0.0f, 8.0f, 1e-6, 1e-4, IMB_LUT_3D_1D, 256, 17},
    {"ramppre.cube", rampPre, -0.5f, 1.5f, 1e-6, 1e-4, IMB_LUT_3D_1D, 2, 17},
    {"ramp01.cube", [] { return cubeWithPre(17, 9, 0.0f, 1.0f, true); }, 0.0f, 1.0f, 0.0, 1e-4, IMB_LUT_3D, 0, 17},
    {"rgb1d.spi1d", rgb1D, -0.25f, 2.0f, 1e-7, 1e-5, IMB_LUT_RGB, 1024, 0},
    {"shared1d.spi1d", shared1D, 0.0f, 1.0f, 1e-7, 1e-5, IMB_LUT_C, 4096, 0},
    {"cube33.spi3d", cube33, 0.0f, 1.0f, 0.0, 1e-4, IMB_LUT_3D, 0, 33},
    {"cube33.3dl", cube33, 0.0f, 1.0f, 1.0 / 65535, 1e-4, IMB_LUT_3D, 0, 33},
    {"meshpre.3dl", [] { return cubeWithPre(17, 17, 0.0f, 1.0f, false); }, 0.0f, 1.0f, 1e-3, 1e-4, IMB_LUT_3D_1D, 17, 17},
    {"rgb1d.csp", rgb1D, -0.25f, 2.0f, 1e-7, 1e-5, IMB_LUT_RGB, 1024, 0},
    {"cube33.csp", cube33, 0.0f, 1.0f, 0.0, 1e-4, IMB_LUT_3D, 0, 33},
    {"logpre.csp", [] { return cubeWithPre(17, 64, 0.0f, 8.0f, false); }, 0.0f, 8.0f, 1e-4, 1e-4, IMB_LUT_3D_1D, 65536, 17},
    {"ramppre.csp", rampPre, -0.5f, 1.5f, 1e-6, 1e-4, IMB_LUT_3D_1D, 2, 17},
};

class ExchangeWritten : public ScratchDir, public testing::WithParamInterface<WrittenCase>
{
};

TEST_P(ExchangeWritten, LoadsBackAndAgreesWithOpenColorIO)
{
    const WrittenCase &c = GetParam();
    const IMB_Lookup original = c.make();
    IMB_Lookup loaded;
    ASSERT_TRUE(original.save(path(c.name).c_str(), false));
    ASSERT_TRUE(loaded.load(path(c.name).c_str(), false));
    EXPECT_EQ(std::vector<int>({loaded.getType(), loaded.get3DSize()}), std::vector<int>({c.type, c.size3D}));
    if (c.size1D)
        EXPECT_EQ(loaded.getTableSize(), c.size1D);
    float lo, hi;
    loaded.getDomain(lo, hi);
    EXPECT_EQ(std::vector<float>({lo, hi}), std::vector<float>({c.lo, c.hi}));

    const bool uhd = std::string(c.name) == "cube33.cube";
    const int w = uhd ? 3840 : 512, h = uhd ? 2160 : 512;
    const std::vector<float> image = sweepImage(w, h, c.lo, c.hi);
    const std::vector<float> ours = applyThroughRaster(loaded, image, w, h);
    EXPECT_LE(maxDifference(applyThroughRaster(original, image, w, h), ours), c.roundTrip);
    EXPECT_LE(maxDifference(applyThroughOCIO(myDir, c.name, image, w, h), ours), c.agreement);
}

// The file name as the test name, dots made underscores.
INSTANTIATE_TEST_SUITE_P(Formats, ExchangeWritten, testing::ValuesIn(theWrittenCases),
                         [](const testing::TestParamInfo<WrittenCase> &i)
                         {
                             std::string name = i.param.name;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

// Files of OpenColorIO's baker, and hand-written ones that exercise the
// readers' less common paths (mixed keywords, input ranges, a cube domain,
// rows in any order, an uneven mesh, a curved shaper), each swept over the
// domain it gives (ExchangeHeaders checks the domains read).
TEST(ExchangeFile, CheckedInFilesLoadAndAgreeWithOpenColorIO)
{
    for (const char *name : {"baked/gamma22_resolve.cube", "baked/graded_iridas.cube", "baked/graded_shaper_resolve.cube",
                             "baked/graded_flame.3dl", "baked/graded_lustre.3dl", "baked/graded.csp",
                             "baked/graded_shaper.csp", "exchange/title_domain.cube", "exchange/shaper_range.cube",
                             "exchange/domain3d.cube", "exchange/one_component.spi1d", "exchange/three_components.spi1d",
                             "exchange/shuffled.spi3d", "exchange/uneven_mesh.3dl", "exchange/three_point.csp",
                             "exchange/straight.csp"})
    {
        const std::string file = dataPath(name), dir = file.substr(0, file.rfind('/'));
        IMB_Lookup lut;
        ASSERT_TRUE(lut.load(file.c_str(), false)) << name;
        float lo, hi;
        lut.getDomain(lo, hi);
        const std::vector<float> image = sweepImage(512, 512, lo, hi);
        EXPECT_LE(maxDifference(applyThroughOCIO(dir, file.substr(dir.size() + 1), image, 512, 512),
                                applyThroughRaster(lut, image, 512, 512)),
                  lut.is3DLUT() ? 1e-4 : 1e-5)
            << name;
    }
}
} // namespace
