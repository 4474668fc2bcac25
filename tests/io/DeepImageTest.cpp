// Deep OpenEXR images: files made here with OpenEXR itself (scanline and
// tiled, half, float and unsigned channels, point and volume samples, empty
// pixels) read into sample lists; bit-exact round trips; merging through the
// accumulator; flattening against the "over" rule written here.
#include <IMB/IMB.h>
#include <IMB/IMB_ImageIO.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDeepFrameBuffer.h>
#include <OpenEXR/ImfDeepScanLineOutputFile.h>
#include <OpenEXR/ImfDeepTiledOutputFile.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfPartType.h>
#include <OpenEXR/ImfTileDescription.h>
#include <Imath/half.h>
#include <gtest/gtest.h>

#include "io/IoTestSupport.h"

#include <filesystem>

namespace fs = std::filesystem;
using iotest::Scratch;

namespace
{
struct Sample
{
    float z, zback, a, r;
    uint32 id;
};

// Pixel (x, y) of a 5 x 3 data window at (2, 1): 0 to 3 samples, every
// other one a volume, depths out of order in some pixels.
std::vector<Sample> samplesOf(int x, int y)
{
    std::vector<Sample> s;
    const int n = (x + 2 * y) % 4;
    for (int k = 0; k < n; ++k)
    {
        const float z = 10.0f - 3.0f * float(k) + 0.25f * float(x) + float(y);
        s.push_back({z, k % 2 ? z + 0.5f : z, 0.125f * float(k + 1), 0.1f * float(x + y) + 0.3f * float(k),
                     uint32(16777216 + 7 * x + k)});
    }
    return s;
}

template <typename T>
void append(std::vector<char> &bytes, T value)
{
    const char *b = reinterpret_cast<const char *>(&value);
    bytes.insert(bytes.end(), b, b + sizeof value);
}

// Writes the 5 x 3 image with OpenEXR's own API: A half, R float, id
// unsigned; ZBack only when `withBack`.
void writeExr(const std::string &path, bool tiled, bool withBack)
{
    const int w = 5, h = 3;
    Imf::Header header(Imath::Box2i(Imath::V2i(0, 0), Imath::V2i(9, 9)),
                       Imath::Box2i(Imath::V2i(2, 1), Imath::V2i(6, 3)));
    header.setType(tiled ? Imf::DEEPTILE : Imf::DEEPSCANLINE);
    header.compression() = tiled ? Imf::RLE_COMPRESSION : Imf::ZIPS_COMPRESSION;
    if (tiled)
        header.setTileDescription(Imf::TileDescription(2, 2));
    const char *names[] = {"Z", "ZBack", "A", "R", "id"};
    const Imf::PixelType types[] = {Imf::FLOAT, Imf::FLOAT, Imf::HALF, Imf::FLOAT, Imf::UINT};
    // Per channel, each pixel's values and a pointer to them.
    std::vector<std::vector<char>> values[5];
    std::vector<char *> pointers[5];
    std::vector<unsigned> counts;
    for (int i = 0; i < w * h; ++i)
    {
        const std::vector<Sample> samples = samplesOf(i % w, i / w);
        counts.push_back(unsigned(samples.size()));
        for (auto &v : values)
            v.emplace_back();
        for (const Sample &s : samples)
        {
            append(values[0][i], s.z);
            append(values[1][i], s.zback);
            append(values[2][i], Imath::half(s.a));
            append(values[3][i], s.r);
            append(values[4][i], s.id);
        }
    }
    const ptrdiff_t shift = -2 - 1 * w; // the buffers start at the data window's origin
    Imf::DeepFrameBuffer fb;
    fb.insertSampleCountSlice(
        Imf::Slice(Imf::UINT, reinterpret_cast<char *>(counts.data() + shift), sizeof(unsigned), sizeof(unsigned) * w));
    for (int c = 0; c < 5; ++c)
        if (c != 1 || withBack)
        {
            for (std::vector<char> &v : values[c])
                pointers[c].push_back(v.data());
            header.channels().insert(names[c], Imf::Channel(types[c]));
            fb.insert(names[c], Imf::DeepSlice(types[c], reinterpret_cast<char *>(pointers[c].data() + shift),
                                               sizeof(char *), sizeof(char *) * w, types[c] == Imf::HALF ? 2 : 4));
        }
    if (tiled)
    {
        Imf::DeepTiledOutputFile file(path.c_str(), header);
        file.setFrameBuffer(fb);
        file.writeTiles(0, file.numXTiles() - 1, 0, file.numYTiles() - 1);
    }
    else
    {
        Imf::DeepScanLineOutputFile file(path.c_str(), header);
        file.setFrameBuffer(fb);
        file.writePixels(h);
    }
}

void expectFileSamples(const IMB_DeepImage &im, bool withBack)
{
    ASSERT_EQ(im.width(), 5);
    ASSERT_EQ(im.height(), 3);
    EXPECT_EQ(im.windows().data.x(), 2);
    EXPECT_EQ(im.windows().display.w(), 10);
    const auto &ch = *im.channels();
    ASSERT_EQ(ch.channelCount(), 3); // A, R, id: OpenEXR's order
    EXPECT_STREQ(ch.name(0).c_str(), "A");
    EXPECT_TRUE(ch.isOrdinal(2));
    EXPECT_EQ(im.halfChannels(), (std::vector<bool>{true, false, false}));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
        {
            const std::vector<Sample> want = samplesOf(x, y);
            const auto &list = im.pixel(x, y);
            ASSERT_EQ(list ? list->sampleCount() : 0, int(want.size())) << x << "," << y;
            for (int k = 0; k < int(want.size()); ++k)
            {
                const float zback = withBack ? want[k].zback : want[k].z;
                EXPECT_EQ(list->zfront(k), want[k].z);
                EXPECT_EQ(list->zback(k), zback);
                EXPECT_EQ(list->isVolume(k), zback > want[k].z);
                EXPECT_EQ(list->coverage(k), ~uint64(0));
                EXPECT_EQ(list->channelData(0, k)[0], float(Imath::half(want[k].a)));
                EXPECT_EQ(list->channelData(1, k)[0], want[k].r);
                EXPECT_EQ(list->channelData(2, k)[0], float(want[k].id));
            }
        }
}
} // namespace

TEST(DeepImage, ReadsScanlineAndTiledFilesMadeByOpenEXR)
{
    Scratch dir;
    for (const bool tiled : {false, true})
        for (const bool withBack : {true, false})
        {
            SCOPED_TRACE(std::string(tiled ? "tiled" : "scanline") + (withBack ? " with ZBack" : ""));
            writeExr(dir / "in.exr", tiled, withBack);
            IMB_DeepImage im;
            ASSERT_TRUE(im.read((dir / "in.exr").c_str()));
            expectFileSamples(im, withBack);
        }
}

TEST(DeepImage, WritingAndReadingBackKeepsEverySampleBitForBit)
{
    Scratch dir;
    writeExr(dir / "in.exr", false, true);
    IMB_DeepImage im, back;
    ASSERT_TRUE(im.read((dir / "in.exr").c_str()));
    for (const char *compression : {"none", "rle", "zips"})
    {
        ASSERT_TRUE(im.write((dir / "out.exr").c_str(), compression));
        ASSERT_TRUE(back.read((dir / "out.exr").c_str()));
        expectFileSamples(back, true);
        EXPECT_EQ(back.uintChannels(), im.uintChannels());
    }
    BAS_ErrorCapture messages;
    EXPECT_FALSE(im.write((dir / "bad.exr").c_str(), "dwaa"));
    EXPECT_NE(messages.text().find("dwaa"), std::string::npos);
    EXPECT_FALSE(fs::exists(dir / "bad.exr"));
}

TEST(DeepImage, BrokenFlatAndMissingFilesFailAndLeaveTheImage)
{
    Scratch dir;
    writeExr(dir / "in.exr", false, true);
    fs::copy_file(dir / "in.exr", dir / "cut.exr");
    fs::resize_file(dir / "cut.exr", fs::file_size(dir / "in.exr") - 40);
    IMB_Raster flat(PACK_RGBA, IMB_FLOAT16, 4, 4, 1);
    ASSERT_TRUE(IMB_ImageFile::write((dir / "flat.exr").c_str(), flat));
    IMB_DeepImage im;
    ASSERT_TRUE(im.read((dir / "in.exr").c_str()));
    for (const char *name : {"cut.exr", "flat.exr", "missing.exr"})
    {
        BAS_ErrorCapture messages;
        EXPECT_FALSE(im.read((dir / name).c_str())) << name;
        EXPECT_NE(messages.text().find(name), std::string::npos) << messages.text();
        expectFileSamples(im, true);
    }
    // Channels of more than one component have no OpenEXR form.
    BAS_IntrusivePtr<IMB_DeepChannelList> wide(new IMB_DeepChannelList);
    wide->addChannel("C", 3);
    const BAS_Rect<BAS_DimRectImpl> r(0, 0, 2, 2);
    BAS_ErrorCapture messages;
    EXPECT_FALSE(IMB_DeepImage(IMB_ImageWindows{r, r}, wide).write((dir / "wide.exr").c_str()));
    EXPECT_FALSE(fs::exists(dir / "wide.exr"));
}

// Merged pixels hold both inputs' samples in depth order; flattening follows
// value = (1 - alpha so far) x sample + value so far over that order.
TEST(DeepImage, MergeSortsEveryPixelsSamplesAndFlattenCompositesThemOver)
{
    Scratch dir;
    writeExr(dir / "in.exr", false, true);
    IMB_DeepImage a, b;
    ASSERT_TRUE(a.read((dir / "in.exr").c_str()));
    ASSERT_TRUE(b.read((dir / "in.exr").c_str()));
    for (int y = 0; y < 3; ++y) // move b's samples half a unit back
        for (int x = 0; x < 5; ++x)
            if (const auto &l = b.pixel(x, y))
                for (int k = 0; k < l->sampleCount(); ++k)
                {
                    l->zfrontBuffer()[k] += 0.5f;
                    l->zbackBuffer()[k] += 0.5f;
                }
    const IMB_DeepImage *inputs[] = {&a, &b};
    IMB_DeepImage merged, streamed;
    ASSERT_TRUE(merged.merge(inputs, 2, "null"));
    IMB_Raster flat;
    ASSERT_TRUE(merged.flatten(flat));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
        {
            std::vector<Sample> all = samplesOf(x, y), later = samplesOf(x, y);
            for (Sample &s : later)
                s.z += 0.5f;
            all.insert(all.end(), later.begin(), later.end());
            std::stable_sort(all.begin(), all.end(), [](const Sample &p, const Sample &q) { return p.z < q.z; });
            const auto &l = merged.pixel(x, y);
            ASSERT_EQ(l ? l->sampleCount() : 0, int(all.size()));
            float r = 0, alpha = 0;
            for (int k = 0; k < int(all.size()); ++k)
            {
                EXPECT_EQ(l->zfront(k), all[k].z);
                const float keep = 1.0f - alpha;
                r += keep * all[k].r;
                alpha += keep * float(Imath::half(all[k].a));
            }
            float px[4];
            flat.getPixelValue(x, y, px);
            EXPECT_EQ(px[0], r) << x << "," << y;
            EXPECT_EQ(px[1], 0.0f); // no G channel
            EXPECT_EQ(px[3], alpha);
        }

    // Merging files streams them over several bands of scan lines: every pixel
    // keeps its own samples, the second file's in front.
    BAS_IntrusivePtr<IMB_DeepChannelList> r1(new IMB_DeepChannelList);
    r1->addChannel("R", 1);
    const BAS_Rect<BAS_DimRectImpl> tall(3, -40, 3, 150);
    for (const char *name : {"t0.exr", "t1.exr"})
    {
        IMB_DeepImage t(IMB_ImageWindows{tall, tall}, r1);
        for (int i = 0; i < 3 * 150; ++i)
        {
            BAS_IntrusivePtr<IMB_DeepSampleList> l(new IMB_DeepSampleList(r1, 1));
            l->zfrontBuffer()[0] = l->zbackBuffer()[0] = name[1] == '0' ? 1.0f : 0.5f;
            l->channelBuffer(0)[0] = name[1] == '0' ? float(i) : -float(i);
            t.pixel(i % 3, i / 3) = l;
        }
        ASSERT_TRUE(t.write((dir / name).c_str()));
    }
    const std::string t0 = dir / "t0.exr", t1 = dir / "t1.exr";
    const char *tallFiles[] = {t0.c_str(), t1.c_str()};
    const std::string out = dir / "merged.exr";
    ASSERT_TRUE(IMB_DeepImage::mergeFiles(tallFiles, 2, out.c_str(), "null"));
    ASSERT_TRUE(streamed.read(out.c_str()));
    for (int i = 0; i < 3 * 150; ++i)
    {
        const auto &l = streamed.pixel(i % 3, i / 3);
        ASSERT_TRUE(l && l->sampleCount() == 2);
        EXPECT_EQ(l->zfront(0), 0.5f);
        EXPECT_EQ(l->channelData(0, 0)[0], -float(i));
        EXPECT_EQ(l->channelData(0, 1)[0], float(i));
    }

    IMB_DeepImage other(IMB_ImageWindows{BAS_Rect<BAS_DimRectImpl>(0, 0, 5, 3), a.windows().display}, a.channels());
    const IMB_DeepImage *mismatched[] = {&a, &other};
    BAS_ErrorCapture messages;
    EXPECT_FALSE(merged.merge(mismatched, 2, "null"));
    EXPECT_FALSE(merged.merge(inputs, 2, "no-such-compressor"));
    EXPECT_EQ(merged.sampleCount(), 2 * a.sampleCount());
}
