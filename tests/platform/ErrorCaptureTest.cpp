// BAS_ErrorCapture: the messages of one thread, collected instead of printed.
#include <IMB/IMB_Lookup.h>
#include <IMB/platform/BAS_ErrorLog.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

namespace
{
std::string printedBy(void (*fn)())
{
    testing::internal::CaptureStderr();
    fn();
    return testing::internal::GetCapturedStderr();
}

// A text table whose version is too new: the reader prints its failure line.
bool loadTooNewTable()
{
    FILE *fp = std::tmpfile();
    std::fputs("Version 4\n", fp);
    std::rewind(fp);
    IMB_Lookup lut;
    const bool ok = lut.load(fp, false);
    std::fclose(fp);
    return ok;
}
} // namespace

TEST(ErrorCapture, CollectsReaderAndErrorLogMessagesOfItsThreadOnly)
{
    const std::string printed = printedBy([] {
        BAS_ErrorCapture outer;
        {
            BAS_ErrorCapture inner;
            brevanError("first %d", 1);
            EXPECT_FALSE(loadTooNewTable());
            std::thread([] { brevanError("elsewhere"); }).join();
            EXPECT_EQ(inner.text(), "first 1\nLUT failed to load: error on line 1\n");
        }
        EXPECT_TRUE(outer.empty());
        brevanError("second\n");
        EXPECT_EQ(outer.text(), "second\n");
    });
    EXPECT_EQ(printed, "elsewhere\n");
    // Without a capture the reader prints again.
    EXPECT_EQ(printedBy([] { EXPECT_FALSE(loadTooNewTable()); }), "LUT failed to load: error on line 1\n");
}
