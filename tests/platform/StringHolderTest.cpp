// BAS_StringHolder: shared storage, comparison, hashing and thread-safe copies.
#include <IMB/platform/BAS_StringHolder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <thread>
#include <unordered_map>
#include <vector>

TEST(StringHolder, CopiesShareOneBlockAndMovesTakeIt)
{
    BAS_StringHolder a("ACEScg"), b = a, c;
    c = b;
    BAS_StringHolder moved(std::move(c));
    EXPECT_TRUE(a.c_str() == b.c_str() && moved.c_str() == a.c_str());
    EXPECT_TRUE(c.isEmpty());
    moved.clear();
    EXPECT_TRUE(moved.isEmpty());
}

TEST(StringHolder, EmptyAndUnsetAreEmptyButDistinguishable)
{
    BAS_StringHolder unset, empty(""), fromNull(static_cast<const char *>(nullptr));
    EXPECT_STREQ(unset.c_str(), "");
    EXPECT_TRUE(unset.isEmpty() && empty.isEmpty());
    EXPECT_TRUE(empty.isstring());
    EXPECT_FALSE(unset.isstring() || fromNull.isstring() || static_cast<bool>(empty));
    EXPECT_EQ(unset.nonNullOrNull(), nullptr);
    EXPECT_EQ(unset, empty); // equal by content
}

TEST(StringHolder, ComparesAndHashesByContentIncludingEmbeddedNuls)
{
    BAS_StringHolder a("abc"), b(std::string("abc")), c("abd"), nul1("a\0b", 3), nul2("a\0c", 3);
    EXPECT_NE(a.c_str(), b.c_str());
    EXPECT_TRUE(a == b && a <= b && a < c && c > a && a == "abc" && a != "ab" && a.equal("abc"));
    EXPECT_TRUE(a.compare(c) < 0 && a.compare(b) == 0 && !a.equal(nullptr));
    EXPECT_TRUE(BAS_StringHolder("ab") < BAS_StringHolder("abc"));
    EXPECT_TRUE(nul1.length() == 3 && nul1 != nul2 && nul1.hash() != nul2.hash());
    EXPECT_TRUE(a.hash() == b.hash() && a.hash() != BAS_StringHolder("Abc").hash());
    EXPECT_EQ(BAS_StringHolder().hash(), BAS_StringHolder("").hash());
    std::unordered_map<BAS_StringHolder, int> map{{a, 1}, {BAS_StringHolder("view"), 2}};
    EXPECT_EQ(map.at(b), 1);
    EXPECT_EQ(map.count(BAS_StringHolder("View")), 0u);
}

TEST(StringHolder, PrintsItsWholeText)
{
    std::ostringstream os;
    os << BAS_StringHolder("a\0b", 3) << BAS_StringHolder();
    EXPECT_EQ(os.str(), std::string("a\0b", 3));
}

TEST(StringHolder, CopiesFromManyThreadsKeepTheTextAlive)
{
    BAS_StringHolder shared("a colour space name that is long enough to be heap-allocated");
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i)
            {
                BAS_StringHolder copy = shared, other;
                other = copy;
                bad += other != shared || other.c_str() != shared.c_str();
            }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(shared, "a colour space name that is long enough to be heap-allocated");
}
