// Cases for a geode: its tables, merging geobs, the steps after a load, image look-up; and the
// shader library the geode asks.
#include "models/dgeode.h"

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "models/dgeob.h"
#include "models/dmaterial.h"
#include "models/dshaderlib.h"
#include "tests/models/geobfixture.h"
#include "tests/support/testsupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

class DGeodeTest : public testing::Test {
protected:
    TempDir dir{true}; // the log file goes here
    DGeode geode{"car.dof"};

    // A geob of 'vertices' vertices in a row, each at x = first + its number, with one triangle
    // burst over 'triangles' triangles of material 'ref'.
    DGeob* Add(int vertices, int triangles, int ref = 0, float first = 0) { return AddTo(geode, vertices, triangles, ref, first); }
    static DGeob* AddTo(DGeode& geode, int vertices, int triangles, int ref = 0, float first = 0)
    {
        std::vector<float> p(size_t(vertices) * 3, 0.0f), uv(size_t(vertices) * 2, 0.5f);
        for (int v = 0; v < vertices; v++) p[v * 3] = first + float(v), p[v * 3 + 1] = float(v % 2);
        std::vector<unsigned short> index;
        for (int t = 0; t < triangles; t++)
            for (int k = 0; k < 3; k++) index.push_back((unsigned short)((t + k) % vertices));
        DGeob* g = MakeGeob(&geode, p, index, uv);
        g->materialRef = ref;
        g->bursts = 1;
        g->burstStart[0] = 0, g->burstCount[0] = triangles * 9, g->burstMtlId[0] = 0, g->burstVperP[0] = 3;
        geode.geobs[geode.geobCount++] = g;
        return g;
    }
};

} // namespace

TEST_F(DGeodeTest, ConstructionAndDestroy)
{
    EXPECT_STREQ("", DGeode().GetName());
    EXPECT_EQ(nullptr, geode.materials[DGEODE_MAX_MATERIALS - 1]);

    int before = qGetAllocCount();
    Add(4, 2);
    Add(4, 2);
    geode.materials[0] = new DMaterial;
    geode.materials[0]->submaterials[0] = new DMaterial;
    geode.materials[0]->submaterialCount = 1;
    geode.materialCount = 2; // the second slot unused
    geode.Destroy();
    EXPECT_EQ(before, qGetAllocCount());
    EXPECT_EQ(nullptr, geode.geobs[0]);
    EXPECT_EQ(nullptr, geode.materials[0]);
    EXPECT_EQ(2, geode.geobCount); // the next load overwrites the counts
    EXPECT_EQ(2, geode.materialCount);
    geode.geobCount = 250; // beyond the table: only the table is walked
    geode.Destroy();
    geode.geobCount = 0;
}

TEST_F(DGeodeTest, MergeUpTo65000Vertices)
{
    DGeob* a = Add(32500, 3);
    DGeob* b = Add(32501, 2, 0, 100000);
    DGeob* c = Add(3, 1);
    EXPECT_FALSE(geode.MergeGeobs(0, 1)); // 65001
    EXPECT_EQ(3, geode.geobCount);
    EXPECT_EQ(32500, a->vertices);
    EXPECT_EQ(b, geode.geobs[1]);

    b->vertices = 32500;
    ASSERT_TRUE(geode.MergeGeobs(0, 1));
    EXPECT_EQ(2, geode.geobCount);
    EXPECT_EQ(c, geode.geobs[1]);
    EXPECT_EQ(nullptr, geode.geobs[2]);
    EXPECT_EQ(65000, a->vertices);
    EXPECT_EQ(15, a->indices);
    const unsigned short index[] = {0, 1, 2, 1, 2, 3, 2, 3, 4, 32500, 32501, 32502, 32501, 32502, 32503};
    for (int i = 0; i < 15; i++) EXPECT_EQ(index[i], a->index[i]) << i;
    EXPECT_EQ(100000.0f, a->vertex[32500 * 3]);
    EXPECT_EQ(0.5f, a->tvertex[0][64999 * 2]);
    EXPECT_EQ(100000.0f + 32499, a->aabb.max.x); // finalised
    // One burst of one material, extended over the joined triangles.
    EXPECT_EQ(1, a->bursts);
    EXPECT_EQ(0, a->burstStart[0]);
    EXPECT_EQ(45, a->burstCount[0]);
}

TEST_F(DGeodeTest, MergeRefusals)
{
    const struct {
        const char* what;
        int i, j;
        void (*change)(DGeob* b);
    } cases[] = {
        {"itself", 0, 0, nullptr},
        {"negative", -1, 0, nullptr},
        {"beyond the count", 0, 3, nullptr},
        {"normals on one side", 0, 1, [](DGeob* b) { b->normal = static_cast<float*>(qcalloc(36)); }},
        {"colours on one side", 0, 1, [](DGeob* b) { b->vcolor = static_cast<float*>(qcalloc(36)); }},
        {"second positions on one side", 0, 1, [](DGeob* b) { b->ovrt = static_cast<float*>(qcalloc(36)); }},
        {"no indices", 0, 1, [](DGeob* b) { qfree(b->index), b->index = nullptr; }},
        {"no vertices", 1, 0, [](DGeob* b) { qfree(b->vertex), b->vertex = nullptr; }},
        {"bursts beyond the table", 0, 1, [](DGeob* b) {
             b->bursts = DGEOB_MAX_BURSTS;
             for (int k = 0; k < DGEOB_MAX_BURSTS; k++) b->burstStart[k] = k * 100 + 50, b->burstVperP[k] = 3;
         }},
    };
    for (const auto& c : cases) {
        DGeode three("three.dof");
        AddTo(three, 3, 1);
        DGeob* b = AddTo(three, 3, 1);
        AddTo(three, 3, 1);
        if (c.change) c.change(b);
        EXPECT_FALSE(three.MergeGeobs(c.i, c.j)) << c.what;
        EXPECT_EQ(3, three.geobCount) << c.what;
        EXPECT_EQ(3, three.geobs[0]->vertices) << c.what;
        EXPECT_EQ(b, three.geobs[1]) << c.what;
    }
}

TEST_F(DGeodeTest, MergeJoinsBurstsChannelsAndTangents)
{
    DGeob* a = Add(3, 1);
    DGeob* b = Add(4, 2);
    b->burstMtlId[0] = 1; // another submaterial: a burst of its own
    b->tvertex[1] = CopyArray(std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8});
    a->tangent = CopyArray(std::vector<float>(12, 1.0f)); // only one side has tangents: dropped
    ASSERT_TRUE(geode.MergeGeobs(0, 1));
    ASSERT_EQ(2, a->bursts);
    EXPECT_EQ(0, a->burstStart[0]);
    EXPECT_EQ(9, a->burstCount[0]);
    EXPECT_EQ(9, a->burstStart[1]); // behind a's three indices
    EXPECT_EQ(18, a->burstCount[1]);
    EXPECT_EQ(1, a->burstMtlId[1]);
    ASSERT_NE(nullptr, a->tvertex[1]);
    const float channel1[] = {0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};
    for (int i = 0; i < 14; i++) EXPECT_EQ(channel1[i], a->tvertex[1][i]) << i;
    EXPECT_EQ(nullptr, a->tangent);

    DGeob* c = Add(3, 1);
    a->EnsureTangents();
    c->EnsureTangents();
    float last = c->tangent[11];
    ASSERT_TRUE(geode.MergeGeobs(0, 1)); // both have tangents: joined
    ASSERT_NE(nullptr, a->tangent);
    EXPECT_EQ(last, a->tangent[10 * 4 - 1]);
}

TEST_F(DGeodeTest, MergeOutOfMemoryChangesNothing)
{
    DGeob* a = Add(3, 1);
    Add(4, 2);
    bool merged = false;
    CaptureStderr();
    for (int fail = 1; fail < 50 && !merged; fail++) {
        int before = qGetAllocCount();
        qSetAllocFailure(fail);
        merged = geode.MergeGeobs(0, 1);
        qSetAllocFailure(0);
        if (merged) break;
        // The failed allocation counts; nothing else may stay.
        if (before + 1 != qGetAllocCount() || geode.geobCount != 2 || a->vertices != 3 || a->indices != 3) {
            ADD_FAILURE() << "allocation " << fail << " failing changed the geode";
            break;
        }
    }
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("DGeode:MergeGeobs(0, 1); no memory (geode car.dof)"));
    EXPECT_EQ(7, a->vertices);
}

// Three geobs of one material: 0 and 1 merge, the third moves into place 1 and waits for the
// next sweep, so two remain.
TEST_F(DGeodeTest, FinishLoadMergesOnceNormalsAlways)
{
    Add(3, 1);
    Add(3, 1, 0, 10);
    DGeob* third = Add(3, 1, 0, 20);
    DGeob* other = Add(3, 1, 5);
    geode.flags = DGEODE_MERGE_GEOBS;
    geode.FinishLoad();
    ASSERT_EQ(3, geode.geobCount);
    EXPECT_EQ(6, geode.geobs[0]->vertices);
    EXPECT_EQ(third, geode.geobs[1]);
    EXPECT_EQ(other, geode.geobs[2]);
    for (int g = 0; g < 3; g++) {
        EXPECT_NE(nullptr, geode.geobs[g]->normal) << g;
        EXPECT_EQ(nullptr, geode.geobs[g]->tangent) << g; // no material asks for them
    }

    DGeode plain("plain.dof");
    plain.geobs[0] = MakeGeob(&plain, {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}, {0, 0, 1, 0, 0, 1});
    plain.geobs[1] = MakeGeob(&plain, {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}, {0, 0, 1, 0, 0, 1});
    plain.geobCount = 2;
    plain.FinishLoad(); // without the flag nothing merges
    EXPECT_EQ(2, plain.geobCount);
}

TEST_F(DGeodeTest, TangentsWhenAShaderAsksForThem)
{
    DShaderLibrary library;
    DShader* plainShader = library.Add("plain", DSHADER_ADJACENCY);
    DShader* bumpShader = library.Add("bump", DSHADER_TANGENTS);
    Add(3, 1);
    Add(3, 1);
    geode.materials[0] = new DMaterial;
    geode.materials[0]->shader = plainShader;
    geode.materialCount = 3; // slot 1 empty
    geode.EnsureTangents();
    EXPECT_EQ(nullptr, geode.geobs[0]->tangent);

    geode.materials[2] = new DMaterial;
    geode.materials[2]->shader = bumpShader;
    geode.FinishLoad();
    EXPECT_NE(nullptr, geode.geobs[0]->tangent);
    EXPECT_NE(nullptr, geode.geobs[1]->tangent);

    DGeode empty;
    empty.materials[0] = new DMaterial;
    empty.materials[0]->shader = bumpShader;
    empty.materialCount = 1;
    empty.FinishLoad(); // no geobs: nothing to do
}

TEST_F(DGeodeTest, FindMapFile)
{
    QMakeDirectory("images");
    QMakeDirectory("maps");
    WriteFile("images/a.tga", "x");
    WriteFile("images/b.tga", "x");
    WriteFile("maps/b.tga", "x");
    const struct {
        const char* mapDir;
        const char* name;
        const char* expect;
    } cases[] = {
        {"", "a.tga", "images/a.tga"},     {"", "b.tga", "images/b.tga"},     {"maps", "b.tga", "maps/b.tga"},
        {"maps", "a.tga", "images/a.tga"}, {"maps", "c.tga", "c.tga"},        {"", "sub/c.tga", "sub/c.tga"},
    };
    for (const auto& c : cases) {
        geode.mapDir = c.mapDir;
        qstring out;
        geode.FindMapFile(c.name, out);
        EXPECT_STREQ(c.expect, out.cstr()) << c.mapDir << " " << c.name;
    }
}

TEST(DShaderLibraryTest, FindsTheFirstOfANameAndHoldsAtMost10000)
{
    TempDir dir(true);
    int before = qGetAllocCount();
    {
        DShaderLibrary library("shaders/");
        DShader* first = library.Add("skin2/shaders/cars/a/hood", DSHADER_TANGENTS);
        EXPECT_NE(first, library.Add("skin2/shaders/cars/a/hood", 0));
        EXPECT_EQ(first, library.Find("skin2/shaders/cars/a/hood"));
        EXPECT_EQ(nullptr, library.Find("skin2/shaders/cars/a/Hood")); // byte for byte
        EXPECT_EQ(nullptr, library.Find("skin2/shaders/cars/a/hoo"));
        EXPECT_EQ(nullptr, library.Find(nullptr));
        for (int i = 2; i < DSHADERLIB_MAX; i++) ASSERT_NE(nullptr, library.Add(std::to_string(i).c_str(), 0));
        CaptureStderr();
        EXPECT_EQ(nullptr, library.Add("one more", 0));
        EXPECT_THAT(GetCapturedStderr(), HasSubstr("DShaderLibrary:Add(one more); out of shaders (max=10000)"));
        EXPECT_EQ(DSHADERLIB_MAX, library.GetCount());
        EXPECT_EQ(library.GetShader(9999), library.Find("9999"));
    }
    EXPECT_EQ(before, qGetAllocCount());
}
