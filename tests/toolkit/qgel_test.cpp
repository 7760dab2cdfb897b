#include "toolkit/qgel.h"

#include "images/qbitmap.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qwindow.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace tarvik {
namespace {

std::string trail; // "P<name>" for Paint, "<name>(x,y,w,h)" for PaintPart

// A sprite that tells what it was asked to paint, then paints.
class SpyGel : public QBitmapGel {
public:
    SpyGel(const char* n, QBitMap* bm, int x, int y, int z0, uint32_t f) : QBitmapGel(bm, x, y, z0, f), name(n) {}
    void Paint() override
    {
        trail += "P" + name + " ";
        QBitmapGel::Paint();
    }
    void PaintPart(QRect* r) override
    {
        char text[64];
        std::snprintf(text, sizeof(text), "%s(%d,%d,%d,%d) ", name.c_str(), r->x, r->y, r->wid, r->hgt);
        trail += text;
        QBitmapGel::PaintPart(r);
    }
    void PaintDone() override { paintDone++; }
    std::string name;
    int paintDone = 0;
};

// Distinct, asymmetric pixels; sprites get alpha 255, 128 and 0 in stripes, so that a part blended
// twice or left out shows.
std::unique_ptr<QBitMap> MakeBitmap(int w, int h, int seed, bool opaque)
{
    std::unique_ptr<QBitMap> bm(new QBitMap(32, w, h, 0));
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            uint8_t* p = bm->GetAddress(x, y);
            p[0] = uint8_t(seed * 37 + x * 11);
            p[1] = uint8_t(seed * 53 + y * 17);
            p[2] = uint8_t(x * y + seed);
            p[3] = opaque ? 255 : uint8_t(x % 3 == 0 ? 255 : x % 3 == 1 ? 128 : 0);
        }
    return bm;
}

bool SameBitmap(const QBitMap& a, const QBitMap& b)
{
    return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight() &&
           std::memcmp(a.GetMemory(), b.GetMemory(), size_t(a.GetMemSize())) == 0;
}

std::string Text(const QRect& r)
{
    return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.wid) + "," + std::to_string(r.hgt);
}

TEST(QGelTest, OverlapIsTheCoveredPartAndTouchingEdgesDoNot)
{
    auto bm8x6 = MakeBitmap(8, 6, 1, true), bm4x4 = MakeBitmap(4, 4, 2, true);
    struct Row { int ax, ay, bx, by; bool usePrev2; bool overlap; QRect rect; } rows[] = {
        {0, 0, 2, 3, false, true, QRect(2, 3, 4, 3)},    // b sticks out at the bottom right
        {5, 5, 3, 6, false, true, QRect(5, 6, 2, 4)},    // b sticks out to the left
        {0, 0, 8, 0, false, false, QRect(8, 0, 0, 4)},   // touches a's right edge
        {0, 0, 0, 6, false, false, QRect(0, 6, 4, 0)},   // touches a's bottom edge
        {0, 0, -4, 0, false, false, QRect(0, 0, 0, 4)},  // touches a's left edge
        {1, 1, 2, 2, false, true, QRect(2, 2, 4, 4)},    // inside
        {40, 40, 2, 2, true, true, QRect(2, 2, 4, 4)},   // null position: a where its prev2Pos is
    };
    for (const Row& r : rows) {
        QBitmapGel a(bm8x6.get(), 0, 0, 0, QGEL_MOVES), b(bm4x4.get(), r.bx, r.by, 0, 0);
        QGelPos at = a.pos;
        at.x = r.ax;
        at.y = r.ay;
        if (r.usePrev2) { // pos far away: only the history may be asked
            a.pos = at;
            a.prev2Pos.x = 1;
            a.prev2Pos.y = 1;
        }
        QRect rect;
        EXPECT_EQ(r.overlap, QGelList::Overlap(&a, &b, &rect, r.usePrev2 ? nullptr : &at)) << r.ax << "," << r.bx;
        EXPECT_EQ(Text(r.rect), Text(rect)) << r.ax << "," << r.bx;
    }
}

TEST(QGelTest, SortIsStableAndOnlyRunsWhenUnsorted)
{
    QGelList list(nullptr);
    auto bm = MakeBitmap(2, 2, 1, true);
    SpyGel a("A", bm.get(), 0, 0, 3, 0), b("B", bm.get(), 0, 0, 1, 0), c("C", bm.get(), 0, 0, 3, 0),
        d("D", bm.get(), 0, 0, 1, 0), e("E", bm.get(), 0, 0, 2, 0);
    for (SpyGel* g : {&a, &b, &c, &d, &e}) list.Add(g);
    auto order = [&] {
        std::string s;
        for (QGel* g = list.head; g; g = g->next) s += static_cast<SpyGel*>(g)->name;
        return s;
    };
    EXPECT_EQ(0u, list.flags & QGelList::SORTED);
    list.Sort();
    EXPECT_EQ("BDEAC", order());
    EXPECT_NE(0u, list.flags & QGelList::SORTED);
    b.z = 9; // a plain store leaves the list marked sorted
    list.Sort();
    EXPECT_EQ("BDEAC", order());
    b.SetZ(8);
    list.Sort();
    EXPECT_EQ("DEACB", order());
    EXPECT_TRUE(list.Remove(&e));
    EXPECT_FALSE(list.Remove(&e));
    EXPECT_EQ("DACB", order());
}

TEST(QGelTest, OnlyMovingGelsKeepAHistory)
{
    QGelList list(nullptr);
    auto bm = MakeBitmap(2, 2, 1, true);
    QBitmapGel moving(bm.get(), 1, 1, 0, QGEL_MOVES), still(bm.get(), 1, 1, 0, 0);
    list.Add(&moving);
    list.Add(&still);
    for (int step = 2; step <= 3; step++) {
        moving.pos.x = still.pos.x = step * 10;
        list.SavePositions();
    }
    EXPECT_EQ(20, moving.prev2Pos.x);
    EXPECT_EQ(30, moving.prevPos.x);
    EXPECT_EQ(1, still.prev2Pos.x);
    EXPECT_EQ(1, still.prevPos.x);
}

// bg at the bottom, the hidden gel H over it, the mover M above both: nobody spreads to H, but H
// paints while dirty itself.
TEST(QGelTest, HiddenGelIsLeftOutOfSpreadingButPaintsWhenDirty)
{
    QGelList list(nullptr);
    auto big = MakeBitmap(20, 20, 1, true), small = MakeBitmap(4, 4, 2, false);
    SpyGel bg("bg", big.get(), 0, 0, 0, 0), h("H", small.get(), 2, 2, 1, 0), m("M", small.get(), 3, 3, 2, QGEL_MOVES),
        top("T", small.get(), 4, 4, 3, 0);
    for (SpyGel* g : {&top, &m, &h, &bg}) list.Add(g);
    h.Hide();
    for (SpyGel* g : {&top, &m, &h, &bg}) g->flags &= ~uint32_t(QGEL_DIRTY | QGEL_DIRTY_TWICE);
    trail.clear();
    m.MarkDirty(false);
    list.Redraw();
    EXPECT_EQ("bg(3,3,4,4) PM bg(4,4,4,4) M(1,1,3,3) PT ", trail);
    EXPECT_FALSE(list.AnyDirty());

    trail.clear();
    h.MarkDirty(false);
    list.Redraw();
    EXPECT_EQ("bg(2,2,4,4) PH bg(3,3,4,4) PM bg(4,4,4,4) M(1,1,3,3) PT ", trail);

    trail.clear();
    bg.MarkDirty(false);
    list.Redraw();
    EXPECT_EQ("Pbg bg(3,3,4,4) PM bg(4,4,4,4) M(1,1,3,3) PT ", trail);
}

// G is painted in two frames; H, at the same depth, counts as lying below it and is mended.
TEST(QGelTest, DirtyTwicePaintsInTwoFrames)
{
    QGelList list(nullptr);
    auto bm = MakeBitmap(2, 2, 1, true);
    SpyGel g("G", bm.get(), 0, 0, 0, QGEL_MOVES), h("H", bm.get(), 1, 1, 0, 0);
    list.Add(&g);
    list.Add(&h);
    h.flags = 0;
    std::string frames;
    for (int i = 0; i < 3; i++) {
        trail.clear();
        list.Redraw();
        frames += trail + "|";
    }
    EXPECT_EQ("H(0,0,1,1) PG |H(0,0,1,1) PG ||", frames);
    EXPECT_EQ(3, g.paintDone);
    EXPECT_EQ(3, h.paintDone);
    g.SetPos(5, 5);
    EXPECT_EQ(uint32_t(QGEL_MOVES | QGEL_DIRTY | QGEL_DIRTY_TWICE), g.flags);
}

int framesSeen;
// Counts frames; a manager that never stops is stopped after ten by emptying its effects.
void CountFrame(QFXManager* fm)
{
    if (++framesSeen >= 10)
        while (fm->effects) fm->Remove(fm->effects);
}

class DoneFX : public QFX {
public:
    void Step() override {}
    bool IsDone() const override { return true; }
};

TEST(QGelTest, RunReturnsAtOnceWithNothingPending)
{
    QFXManager fm(nullptr);
    fm.frameFunc = CountFrame;
    framesSeen = 0;
    fm.Run();
    EXPECT_EQ(0, framesSeen);
    DoneFX a, b;
    fm.Add(&a);
    fm.Add(&b);
    fm.Run();
    EXPECT_EQ(0, framesSeen);
    {
        QMoveFX gone(nullptr, 0, 0, 3); // pending, and leaves the manager when destroyed
        fm.Add(&gone);
    }
    EXPECT_TRUE(fm.Remove(&a));
    EXPECT_EQ(&b, fm.effects);
    EXPECT_EQ(nullptr, b.next);
}

// Two bitmaps stand for the two buffers of a window; the frame hook swaps them, as the window's
// swap would. Scene: an opaque background, sprite A (moves) and sprite B above it.
class GelSceneTest : public testing::Test {
protected:
    enum { W = 40, H = 30 };
    void SetUp() override
    {
        trail.clear();
        scene = this;
        buf[0].reset(new QBitMap(32, W, H, 0));
        buf[1].reset(new QBitMap(32, W, H, 0));
        cv.reset(new QCanvas(buf[0].get()));
        cv->SetBitmap(buf[0].get());
        cv->SetFlags(QCV_BITMAP);
        back = 0;
        bgBm = MakeBitmap(W, H, 3, true);
        aBm = MakeBitmap(8, 6, 4, false);
        bBm = MakeBitmap(6, 6, 5, false);
        bg.reset(new SpyGel("bg", bgBm.get(), 0, 0, -5, 0));
        a.reset(new SpyGel("A", aBm.get(), 5, 5, 1, QGEL_MOVES));
        b.reset(new SpyGel("B", bBm.get(), 20, 5, 2, 0));
    }
    static void Swap(QFXManager*)
    {
        scene->back ^= 1;
        scene->cv->SetBitmap(scene->buf[scene->back].get());
    }
    // The scene painted from scratch, bottom up, without the gel list.
    std::unique_ptr<QBitMap> Reference()
    {
        std::unique_ptr<QBitMap> ref(new QBitMap(32, W, H, 0));
        QCanvas rc(ref.get());
        rc.SetBitmap(ref.get());
        rc.SetFlags(QCV_BITMAP);
        rc.SetBlending(true);
        for (SpyGel* g : {bg.get(), a.get(), b.get()}) rc.DrawPixels(g->GetBitmap(), g->pos.x, g->pos.y, -1, -1, 0, 0, 0);
        return ref;
    }
    void ExpectBothBuffersShowTheScene()
    {
        auto ref = Reference();
        EXPECT_TRUE(SameBitmap(*ref, *buf[0]));
        EXPECT_TRUE(SameBitmap(*ref, *buf[1]));
    }

    static GelSceneTest* scene;
    std::unique_ptr<QBitMap> buf[2], bgBm, aBm, bBm;
    std::unique_ptr<QCanvas> cv;
    int back;
    std::unique_ptr<SpyGel> bg, a, b;
};
GelSceneTest* GelSceneTest::scene;

TEST_F(GelSceneTest, AMoveRepaintsOnlyWhatChangedInEachBuffer)
{
    QGelList list(cv.get());
    for (SpyGel* g : {b.get(), a.get(), bg.get()}) list.Add(g);
    QFXManager fm(&list);
    fm.frameFunc = Swap;
    while (list.AnyDirty()) fm.Frame(false);
    ExpectBothBuffersShowTheScene();

    // A leaves (5,5) in both buffers; B, elsewhere, is not touched. Moves are made in an effect's
    // step, after the frame has taken the positions' history.
    QMoveFX first(a.get(), 9, 7, 1), second(a.get(), 16, 5, 1);
    fm.Add(&first);
    trail.clear();
    fm.Frame(false);
    fm.Frame(false);
    EXPECT_EQ("bg(5,5,8,6) PA bg(5,5,8,6) PA ", trail);
    EXPECT_FALSE(list.AnyDirty());
    ExpectBothBuffersShowTheScene();

    // A slides under B: B repaints over it, and mends its own rectangle from the gels below.
    fm.Remove(&first);
    fm.Add(&second);
    trail.clear();
    fm.Frame(false);
    EXPECT_EQ("bg(9,7,8,6) PA bg(20,5,6,6) A(4,0,4,6) PB ", trail);
    while (list.AnyDirty()) fm.Frame(false);
    ExpectBothBuffersShowTheScene();

    // A leaves B's rectangle: B, clear of where A is now, still repaints where A was.
    QMoveFX third(a.get(), 5, 18, 1);
    fm.Remove(&second);
    fm.Add(&third);
    trail.clear();
    fm.Frame(false);
    EXPECT_EQ("bg(16,5,8,6) PA bg(20,5,6,6) PB ", trail);
    while (list.AnyDirty()) fm.Frame(false);
    ExpectBothBuffersShowTheScene();
}

TEST_F(GelSceneTest, MoveEffectThroughRefreshEndsAtTheTarget)
{
    std::unique_ptr<QApp> owner(new QApp("geltest"));
    app->bc = new QWindow(nullptr, 0, 0, W, H); // no native window: nothing to swap
    app->fxList = new QGelList(cv.get());
    app->fxManager = new QFXManager(app->fxList);
    app->fxManager->swap = 1;
    for (SpyGel* g : {bg.get(), a.get(), b.get()}) app->fxList->Add(g);
    app->fxManager->frameFunc = Swap;
    app->Refresh(); // no effects: only the first paint
    ExpectBothBuffersShowTheScene();

    QMoveFX move(a.get(), 25, 20, 4);
    app->fxManager->Add(&move);
    app->fxManager->frameFunc = [](QFXManager* fm) {
        framesSeen++;
        Swap(fm);
    };
    framesSeen = 0;
    app->Refresh();
    EXPECT_EQ(25, a->pos.x);
    EXPECT_EQ(20, a->pos.y);
    EXPECT_TRUE(move.IsDone());
    EXPECT_FALSE(app->fxList->AnyDirty());
    EXPECT_EQ(5, framesSeen); // four steps, and one more for the other buffer
    ExpectBothBuffersShowTheScene();
}

} // namespace
} // namespace tarvik
