// QRect, QColor, QDrawable, QBitMap's pixels, the blits and the blit queue.
#include "images/qbitmap.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

// Runs 'body' in a fresh directory and gives the warnings it logged, times cut off.
template <class F> std::string LogOf(F body)
{
    TempDir dir(true);
    qmsgReset();
    testing::internal::CaptureStderr();
    body();
    testing::internal::GetCapturedStderr();
    return LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
}

bool Logged(const std::string& log, const std::string& text) { return log.find("[-] " + text + " [") != std::string::npos; }

std::vector<uint8_t> Bytes(const QBitMap& m) { return {m.GetMemory(), m.GetMemory() + m.GetMemSize()}; }

void Fill(QBitMap& bm) { for (int i = 0; i < bm.GetMemSize(); i++) bm.GetMemory()[i] = uint8_t(1 + i * 7); }

// A canvas stand-in: the hooks count what the images ask of a canvas.
int canvasDeletes, queueExecutions;
QBlitQueue* executedQueue;
const QCanvasHooks countingHooks = {[](QCanvas*) { canvasDeletes++; },
                                    [](QCanvas*) { queueExecutions++, executedQueue->numEntries = 0; }};
struct HooksInstalled {
    HooksInstalled() { canvasDeletes = queueExecutions = 0, qcanvasHooks = &countingHooks; }
    ~HooksInstalled() { qcanvasHooks = nullptr; }
};

} // namespace

TEST(QRectTest, ContainsIsHalfOpenAndInsetKeepsOnePixel)
{
    QRect r(10, 20, 5, 3);
    EXPECT_TRUE(r.Contains(10, 20) && r.Contains(14, 22));
    EXPECT_FALSE(r.Contains(15, 20) || r.Contains(10, 23) || r.Contains(9, 20) || r.Contains(10, 19));
    EXPECT_TRUE(QRect(0x7FFFFFF0, 0, 0x7FFFFFFF, 1).Contains(0x7FFFFFFF, 0)); // far edge beyond the int range

    r.Inset(1);
    EXPECT_EQ(std::vector<int>({r.x, r.y, r.wid, r.hgt}), std::vector<int>({11, 21, 3, 1}));
    r.Inset(5);
    EXPECT_EQ(std::vector<int>({r.wid, r.hgt}), std::vector<int>({1, 1}));
}

TEST(QColorTest, PacksRedHighestAlphaLowest)
{
    QColor c(1, 2, 3, 4), d(0u);
    EXPECT_EQ(c.GetRGBA(), 0x01020304u);
    c.Set(255, 0, 128, 7);
    d.Set(&c);
    EXPECT_EQ(d.GetRGBA(), 0xFF008007u);
    EXPECT_STREQ(d.ClassName(), "QColor");
}

TEST(QDrawableTest, BaseOperationsReportAndCanvasIsDeletedWithTheDrawable)
{
    HooksInstalled hooks;
    std::string log = LogOf([] {
        QBitMap bm(32, 1, 1, 0);
        EXPECT_TRUE(bm.Create());
        bm.Destroy();
        EXPECT_EQ(bm.GetNativeHandle(), nullptr);
        bm.SetCanvas(reinterpret_cast<QCanvas*>(&bm));
    });
    for (std::string what : {"Create", "Destroy"})
        EXPECT_NE(log.find("(ERR  ): [-] QDrawable::" + what + "() base class called ["), std::string::npos) << log;
    EXPECT_EQ(canvasDeletes, 1);
}

TEST(QBitMapTest, AllocSizesZeroesAdoptsExternalMemoryAndLeaksNothing)
{
    uint8_t block[16] = {};
    int before = qGetAllocCount();
    {
        QBitMap empty(32, 0, 0, 0);
        EXPECT_TRUE(empty.GetWidth() == 0 && empty.GetMemory() == nullptr); // zero sizes allocate nothing
        EXPECT_EQ(qGetAllocCount(), before);

        QBitMap bm(32, 3, 2, 8);
        EXPECT_EQ(bm.GetFlags(), 8);
        EXPECT_EQ(Bytes(bm), std::vector<uint8_t>(24, 0));
        EXPECT_EQ(bm.GetAddress(1, 1), bm.GetMemory() + 16);
        ASSERT_TRUE(bm.Alloc(8, 5, 3, 0, nullptr)); // another depth is sized, not drawn
        EXPECT_EQ(bm.GetMemSize(), 15);
        EXPECT_TRUE(!bm.HasTransparency() && bm.KeyOutMagenta() == 0);

        ASSERT_TRUE(bm.Alloc(32, 2, 2, 1, block));
        EXPECT_EQ(bm.GetFlags(), 1 | QBM_EXTERNAL_MEM);
        bm.SetAlpha(9);
        ASSERT_TRUE(bm.Alloc(32, 1, 1, 0, nullptr)); // replaces the block without freeing it
        EXPECT_EQ(bm.GetFlags() & QBM_EXTERNAL_MEM, 0);
        EXPECT_NE(bm.GetMemory(), block);
        ASSERT_TRUE(bm.Alloc(32, 2, 2, 0, block));
    }
    EXPECT_EQ(block[3], 9);
    EXPECT_EQ(qGetAllocCount(), before);
}

TEST(QBitMapTest, AllocFailureWarnsAndKeepsTheSizes)
{
    std::string log = LogOf([] {
        QBitMap bm(32, 0, 0, 0);
        qSetAllocFailure(1);
        EXPECT_FALSE(bm.Alloc(32, 4, 3, 5, nullptr));
        qSetAllocFailure(0);
        EXPECT_TRUE(bm.GetMemory() == nullptr && bm.GetWidth() == 4 && bm.GetHeight() == 3);
        // Sizes no block can have: wrapping, negative.
        EXPECT_FALSE(bm.Alloc(32, 65536, 65536, 0, nullptr) || bm.Alloc(32, -2, 3, 0, nullptr));
        EXPECT_EQ(bm.GetMemSize(), 0);
        bm.Clear();
        bm.SetAlpha(1);
        EXPECT_FALSE(bm.HasTransparency());
    });
    EXPECT_TRUE(Logged(log, "QBitMap::Alloc() failed on 4x3, depth 32, flags 5")) << log;
    EXPECT_TRUE(Logged(log, "QBitMap::Alloc() failed on 65536x65536, depth 32, flags 0")) << log;
}

TEST(QBitMapTest, SetColorAtCountsFromTheTopChecksTheRangeAndScansFindIt)
{
    QBitMap bm(32, 2, 2, 0);
    std::string log = LogOf([&] {
        bm.SetColorAt(0, 0, QColor(1, 2, 3, 4));
        bm.SetColorAt(2, 0, QColor(9, 9, 9, 9));
        bm.SetColorAt(0, -1, QColor(9, 9, 9, 9));
    });
    EXPECT_EQ(Bytes(bm), std::vector<uint8_t>({0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 0, 0, 0, 0}));
    EXPECT_TRUE(Logged(log, "QBitMap:SetColorAt(2,0) out of range (2x2)")) << log;
    EXPECT_TRUE(Logged(log, "QBitMap:SetColorAt(0,-1) out of range (2x2)")) << log;

    QBitMap row(32, 3, 1, 0);
    row.SetAlpha(255);
    EXPECT_TRUE(!row.HasTransparency() && row.KeyOutMagenta() == 0);
    row.SetColorAt(1, 0, QColor(255, 0, 255, 17));
    row.SetColorAt(2, 0, QColor(255, 1, 255, 255));
    EXPECT_EQ(row.KeyOutMagenta(), 1);
    EXPECT_EQ(Bytes(row), std::vector<uint8_t>({0, 0, 0, 255, 0, 0, 0, 0, 255, 1, 255, 255}));
    EXPECT_TRUE(row.HasTransparency());
    row.Clear();
    EXPECT_EQ(Bytes(row), std::vector<uint8_t>(12, 0));
}

TEST(BlitCopyTest, RangeChecksComeInOrderAndDrawNothingAndTheExactFitCopies)
{
    QBitMap src(32, 4, 3, 0), dst(32, 5, 4, 0);
    Fill(src);
    struct Case { int sx, sy, dx, dy, w, h; const char* words; } cases[] = {
        {1, 0, 0, 0, 4, 1, "source width"},       {0, 1, 0, 0, 1, 3, "source height"},
        {0, 0, 2, 0, 4, 1, "destination width"},  {0, 0, 0, 2, 1, 3, "destination height"},
        {-1, 0, 0, 0, 1, 1, "source width"},      {0, 0, 0, -1, 1, 1, "destination height"},
    };
    for (const Case& c : cases) {
        std::string log = LogOf([&] { BlitCopy(&src, c.sx, c.sy, &dst, c.dx, c.dy, c.w, c.h, 0, 0); });
        EXPECT_TRUE(Logged(log, std::string("[BlitCopy] BlitCopy ") + c.words + " goes out of range")) << log;
        ASSERT_EQ(Bytes(dst), std::vector<uint8_t>(80, 0)) << c.words;
    }
    std::string log = LogOf([&] {
        BlitCopy(nullptr, 0, 0, &dst, 0, 0, 1, 1, 0, 0);
        BlitCopy(&src, 0, 0, nullptr, 0, 0, 1, 1, 0, 0);
    });
    EXPECT_TRUE(Logged(log, "[BlitCopy] sbm is NULL") && Logged(log, "[BlitCopy] dbm is NULL")) << log;

    // Width 3 from column 1 of a 4 wide source fits; a plain word copy, alpha included.
    dst.SetAlpha(255);
    BlitCopy(&src, 1, 0, &dst, 2, 1, 3, 3, 0, 0);
    for (int y = 0; y < 3; y++)
        EXPECT_EQ(std::vector<uint8_t>(dst.GetAddress(2, 1 + y), dst.GetAddress(5, 1 + y)),
                  std::vector<uint8_t>(src.GetAddress(1, y), src.GetAddress(4, y))) << y;
    EXPECT_EQ(dst.GetAddress(1, 1)[3], 255);
    QBlit(&src, 0, 0, &dst, 0, 0, 0, 2, 1, 1); // nothing to do, not even a check
}

TEST(BlitCopyTest, BlendDividesBy255AndTruncates)
{
    // Source and target grey, source alpha, target alpha, then the grey and alpha blended; by 255,
    // not 256: alpha 255 gives the source exactly, 0 the target.
    const int cases[][6] = {{255, 0, 255, 9, 255, 255}, {0, 255, 0, 9, 255, 9},   {100, 50, 128, 200, 75, 163},
                            {1, 0, 1, 0, 0, 0}, {200, 201, 254, 255, 200, 254}, {10, 200, 51, 200, 162, 170}};
    auto px = [](int v, int a) { return std::vector<uint8_t>({uint8_t(v), uint8_t(v), uint8_t(v), uint8_t(a)}); };
    for (const auto& c : cases) {
        QBitMap src(32, 1, 1, 0), dst(32, 1, 1, 0), keep(32, 1, 1, 0);
        src.SetColorAt(0, 0, QColor(c[0], c[0], c[0], c[2]));
        dst.SetColorAt(0, 0, QColor(c[1], c[1], c[1], c[3]));
        keep.SetColorAt(0, 0, QColor(c[1], c[1], c[1], c[3]));
        BlitCopy(&src, 0, 0, &dst, 0, 0, 1, 1, 5, 1);
        BlitCopy(&src, 0, 0, &keep, 0, 0, 1, 1, 1, 0); // without copyAlpha the target keeps its alpha
        EXPECT_EQ(Bytes(dst), px(c[4], c[5])) << c[0] << " over " << c[1];
        EXPECT_EQ(Bytes(keep), px(c[4], c[3])) << c[0] << " over " << c[1];
    }
}

TEST(QBlitQueueTest, OverflowRunsTheListAndKeepsTheNewRecord)
{
    HooksInstalled hooks;
    QBitMap bm(32, 1, 1, 0);
    QBlitQueue queue(reinterpret_cast<QCanvas*>(&bm));
    executedQueue = &queue;
    EXPECT_EQ(queue.maxEntries, 500);
    std::string log = LogOf([&] {
        for (int i = 0; i < 500; i++) EXPECT_TRUE(queue.AddBlit(&bm, i, 0, 1, 1, 0, 0, QBLIT_BLEND));
        EXPECT_EQ(queueExecutions, 0);
        EXPECT_TRUE(queue.AddBlit(&bm, 7, 8, 9, 10, 11, 12, QBLIT_SKIP));
    });
    EXPECT_TRUE(Logged(log, "QBlitQueue: overflow; executing current list")) << log;
    EXPECT_EQ(queueExecutions, 1);
    ASSERT_EQ(queue.numEntries, 1);
    const QBlitEntry* e = queue.GetBlit(0);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(std::vector<int>({e->srcX, e->dstY, int(e->flags)}), std::vector<int>({7, 12, QBLIT_SKIP}));
    EXPECT_TRUE(queue.GetBlit(1) == nullptr && queue.GetBlit(-1) == nullptr);

    // Without a canvas the queue starts over and never runs past its records.
    QBlitQueue bare(nullptr);
    LogOf([&] {
        for (int i = 0; i < 1203; i++) bare.AddBlit(&bm, i, 0, 1, 1, 0, 0, 0);
    });
    EXPECT_EQ(bare.numEntries, 203);
    EXPECT_EQ(bare.GetBlit(202)->srcX, 1202);
}
