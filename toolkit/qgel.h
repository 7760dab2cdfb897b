// Gels and the effects manager. A gel is a sprite: a small rectangle of picture that floats over
// the others on a double-buffered surface, at a depth 'z' (higher lies on top). QGelList keeps its
// gels sorted by depth and repaints only what changed: a dirty gel makes those above it that it
// touches repaint themselves, and those below it mend the place it has left. QFXManager steps a
// list of effects and paints a frame until every effect is done. QApp::Refresh drives both.
//
// Double buffering is why a gel keeps two old positions: the buffer being drawn now still shows
// what was drawn two frames ago, at prev2Pos, so that is the place to mend. A gel marked with both
// QGEL_DIRTY and QGEL_DIRTY_TWICE is painted in two frames, once into each buffer.
//
// Neither list owns its elements: gels and effects belong to whoever made them. An element knows
// the list it stands in and leaves it when it is destroyed; a list that is destroyed first lets its
// elements go. The manager borrows its gel list.
#pragma once

#include "foundation/qobject.h"

#include <cstdint>

namespace tarvik {

class QBitMap;
class QCanvas;
class QGelList;
class QFXManager;
struct QRect;

enum QGelFlags : uint32_t {
    QGEL_MOVES = 1,        // keep a position history: the gel moves, and the place it left needs mending
    QGEL_HIDDEN = 2,       // left out: never spread to, never repaints for others
    QGEL_DIRTY = 8,        // to be repainted in the next frame
    QGEL_DIRTY_TWICE = 16, // stay dirty for one frame more, so that the other buffer gets it too
};

// A position: x and y, and three words that travel along with them and that nothing here reads.
struct QGelPos {
    int32_t x, y;
    int32_t extra[3];
};

class QGel : public QObject {
public:
    QGel(int x, int y, int z, uint32_t flags); // positions and history all at (x, y)
    ~QGel() override; // leaves its list

    const char* ClassName() const override { return "QGel"; }
    virtual int GetWidth() const = 0;
    virtual int GetHeight() const = 0;
    virtual void Paint() = 0;             // the whole gel at pos
    virtual void PaintDone() {}           // after every frame, dirty or not
    virtual void PaintPart(QRect* r) = 0; // only 'r', given relative to the gel's top left

    // Puts the gel at (x, y) and marks it dirty. A gel with QGEL_MOVES is marked dirty twice, so
    // that the place it left is mended in both buffers. A gel without it has no history: its old
    // positions jump along, and the place it left is not mended (such a gel is placed, not moved).
    // Move gels from an effect's Step: a frame takes the history before the effects step, so a
    // position set between frames passes for one already drawn, and the other buffer keeps a trail.
    void SetPos(int x, int y);
    // A new depth: the list sorts again before its next repaint. Marks the gel dirty twice.
    void SetZ(int newZ);
    // Hide marks the gel dirty twice, so that the gels below mend its place in both buffers; a
    // hidden gel is still asked to Paint while dirty, and QBitmapGel then draws nothing. Show marks
    // it dirty twice to bring it back.
    void Hide();
    void Show();
    void MarkDirty(bool bothBuffers) { flags |= QGEL_DIRTY | (bothBuffers ? QGEL_DIRTY_TWICE : 0u); }
    bool IsHidden() const { return flags & QGEL_HIDDEN; }
    bool IsDirty() const { return flags & QGEL_DIRTY; }
    QGelList* GetList() const { return list; }
    QCanvas* GetCanvas() const; // the list's canvas, null outside a list

    QGelPos pos;      // now
    uint32_t flags;   // QGelFlags
    int32_t z;        // depth; higher lies on top
    QGelPos prevPos;  // pos one frame ago
    QGelPos prev2Pos; // pos two frames ago: what the buffer being drawn still shows
    QGel* next;       // next gel of the list

private:
    friend class QGelList;
    QGelList* list; // borrowed: the list the gel stands in
};

class QGelList {
public:
    enum { SORTED = 1 };

    explicit QGelList(QCanvas* cv); // the canvas is borrowed and may be null (nothing is drawn)
    QGelList(const QGelList&) = delete;
    QGelList& operator=(const QGelList&) = delete;
    virtual ~QGelList(); // lets its gels go, deleting none

    // Enters a gel at the end of the list, out of any other list first; the list is unsorted from
    // here on and the gel dirty twice, so that it appears in both buffers.
    void Add(QGel* gel);
    // Takes a gel out; false if it isn't in this list. Its place is not mended: hide it for a frame
    // or two first if the picture must lose it.
    bool Remove(QGel* gel);
    void Unsort() { flags &= ~uint32_t(SORTED); }

    void Sort();          // stable bubble sort by z ascending, only when unsorted
    void SavePositions(); // for each gel with QGEL_MOVES: prev2Pos = prevPos, prevPos = pos
    void Redraw();        // repaints the dirty gels and what they touch, batched through the queue
    bool AnyDirty() const;

    // The part of gel b that a rectangle of a's size covers, standing at 'at' or, if that is null,
    // at a's prev2Pos. False unless both width and height are above 0: gels that only touch at an
    // edge do not overlap.
    static bool Overlap(const QGel* a, const QGel* b, QRect* rect, const QGelPos* at);

    QGel* GetHead() const { return head; }
    QCanvas* GetCanvas() const { return canvas; }
    void SetCanvas(QCanvas* cv) { canvas = cv; }

    uint32_t flags; // SORTED
    QGel* head;
    QCanvas* canvas; // borrowed

private:
    void Spread(QGel* gel);
};

// An effect: one frame's work in Step, and IsDone when nothing is pending.
class QFX {
public:
    QFX() : next(nullptr), manager(nullptr) {}
    QFX(const QFX&) = delete;
    QFX& operator=(const QFX&) = delete;
    virtual ~QFX(); // leaves its manager

    virtual void Step() = 0;
    virtual bool IsDone() const = 0;

    QFX* next;

private:
    friend class QFXManager;
    QFXManager* manager; // borrowed: the manager whose list holds it
};

class QFXManager {
public:
    typedef void (*FrameFunc)(QFXManager* fm);

    explicit QFXManager(QGelList* gelList); // borrowed, may be null
    QFXManager(const QFXManager&) = delete;
    QFXManager& operator=(const QFXManager&) = delete;
    virtual ~QFXManager(); // lets its effects go, deleting none

    void Add(QFX* fx);    // at the end: effects step in the order they were added
    bool Remove(QFX* fx); // false if it isn't in this list

    // One frame: save positions, step every effect, repaint, call frameFunc, and unless 'noSwap'
    // swap the buffers of app->bc if 'swap' is set.
    void Frame(bool noSwap);
    // Frames until every effect is done; returns at once with no effects or none pending.
    void Run();

    QFX* effects;
    int32_t swap;        // not 0: swap the buffers of app->bc at the end of each frame
    QGelList* gels;      // borrowed; may be null
    FrameFunc frameFunc; // called once a frame after painting; may be null
};

// A sprite drawn from a bitmap through the list's canvas, blended by the bitmap's alpha. The same
// class with a full-window bitmap at the lowest depth makes a background that mends what moving
// gels uncover. A hidden gel draws nothing. Parts outside the target are the canvas's to clip.
class QBitmapGel : public QGel {
public:
    QBitmapGel(QBitMap* bm, int x, int y, int z, uint32_t flags); // bm borrowed

    const char* ClassName() const override { return "QBitmapGel"; }
    int GetWidth() const override;
    int GetHeight() const override;
    void Paint() override;
    void PaintPart(QRect* r) override;

    QBitMap* GetBitmap() const { return bitmap; }
    void SetBitmap(QBitMap* bm) { bitmap = bm; MarkDirty(true); } // of the same size: the place is mended at the new one

private:
    void Draw(int x, int y, int wid, int hgt); // the part (x, y, wid, hgt) of the sprite, in its own coordinates

    QBitMap* bitmap; // borrowed
};

// Moves a gel in a straight line from where it stands when the effect first steps to (tx, ty), in
// 'frames' steps (at least one); done when it is there. Each step rounds toward the start. The gel
// wants QGEL_MOVES, or the places it passes are never mended.
class QMoveFX : public QFX {
public:
    QMoveFX(QGel* g, int tx, int ty, int frames); // the gel is borrowed and must outlive the effect's work

    void Step() override;
    bool IsDone() const override { return step >= frames; }

private:
    QGel* gel;
    int32_t fromX, fromY;
    int32_t toX, toY;
    int32_t frames;
    int32_t step; // steps done
};

} // namespace tarvik
