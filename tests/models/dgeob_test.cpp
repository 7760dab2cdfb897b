// Cases for a geob: finalising, the box, burst look-ups, normals and tangents with the vertex split.
#include "models/dgeob.h"

#include "foundation/qhelpers.h"
#include "models/dgeode.h"
#include "models/dmaterial.h"
#include "tests/models/geobfixture.h"
#include "tests/support/testsupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

using namespace tarvik;
using namespace tarvik::test;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

class DGeobTest : public testing::Test {
protected:
    TempDir dir{true}; // the log file goes here
    DGeode geode{"car.dof"};
};

void ExpectVector(const float* v, float x, float y, float z, const char* what)
{
    EXPECT_NEAR(x, v[0], 1e-6f) << what;
    EXPECT_NEAR(y, v[1], 1e-6f) << what;
    EXPECT_NEAR(z, v[2], 1e-6f) << what;
}

} // namespace

TEST_F(DGeobTest, FinalizeRepairsIndicesAndMakesChannelZero)
{
    DGeob* g = MakeGeob(&geode, {0, 0, 0, 4, 2, 0, 2, 6, -2}, {0, 5, 2, 3, 1});
    CaptureStderr();
    g->FinalizeGeob();
    std::string err = GetCapturedStderr();
    EXPECT_THAT(err, HasSubstr("Geode car.dof has bad indices in geob (index[1]=5>3 vertices."));
    EXPECT_THAT(err, HasSubstr("Geode car.dof has bad indices in geob (index[3]=3>3 vertices."));
    EXPECT_THAT(err, HasSubstr("Geode car.dof has geobs without texcoords; generating fake values"));
    const unsigned short repaired[] = {0, 0, 2, 0, 1};
    for (int i = 0; i < 5; i++) EXPECT_EQ(repaired[i], g->index[i]);
    ASSERT_NE(nullptr, g->tvertex[0]);
    for (int i = 0; i < 6; i++) EXPECT_EQ(0.0f, g->tvertex[0][i]);
    EXPECT_EQ(nullptr, g->tvertex[1]); // only channel 0 is made up
    ExpectVector(&g->aabb.min.x, 0, 0, -2, "min");
    ExpectVector(&g->aabb.max.x, 4, 6, 0, "max");
    ExpectVector(g->center, 2, 3, -1, "center");
    EXPECT_FLOAT_EQ(std::sqrt(16.0f + 36 + 4) / 2, g->radius);

    CaptureStderr();
    g->FinalizeGeob(); // all repaired: silent
    EXPECT_EQ("", GetCapturedStderr());
    delete g;
}

TEST_F(DGeobTest, BoxStartsAt99999)
{
    const struct {
        std::vector<float> positions;
        float box[6];
    } cases[] = {
        {{}, {0, 0, 0, 0, 0, 0}},
        {{1, -2, 3}, {1, -2, 3, 1, -2, 3}},
        // beyond the start value on every vertex: that side keeps it
        {{200000, -200000, 5, 300000, -300000, 6}, {99999, -300000, 5, 300000, -99999, 6}},
    };
    for (const auto& c : cases) {
        DGeob* g = MakeGeob(&geode, c.positions, {}, std::vector<float>(c.positions.size() / 3 * 2 + 2)); // no texcoord warning
        float box[6];
        g->GetBox(box);
        for (int k = 0; k < 6; k++) EXPECT_EQ(c.box[k], box[k]) << k;
        g->FinalizeGeob();
        if (c.positions.empty()) {
            EXPECT_EQ(0.0f, g->radius);
        }
        delete g;
    }
}

TEST_F(DGeobTest, FindBurstGivesTheFirstThatEndsBehindThePosition)
{
    DGeob g(&geode);
    EXPECT_EQ(-1, g.FindBurst(0));
    g.bursts = 3;
    const int start[] = {0, 9, 27}, count[] = {9, 18, 9};
    for (int b = 0; b < 3; b++) g.burstStart[b] = start[b], g.burstCount[b] = count[b];
    const int cases[][2] = {{-5, 0}, {0, 0}, {8, 0}, {9, 1}, {26, 1}, {27, 2}, {35, 2}, {36, -1}};
    for (const auto& c : cases) EXPECT_EQ(c[1], g.FindBurst(c[0])) << c[0];
}

TEST_F(DGeobTest, BurstMaterialSelection)
{
    DGeob g(&geode);
    EXPECT_EQ(nullptr, g.GetBurstMaterial(0)); // no materials at all
    DMaterial* m[3];
    for (auto& p : m) p = new DMaterial;
    DMaterial* sub[2] = {new DMaterial, new DMaterial};
    m[1]->submaterials[0] = sub[0], m[1]->submaterials[1] = sub[1], m[1]->submaterialCount = 2;
    for (int i = 0; i < 3; i++) geode.materials[i] = m[i];
    geode.materialCount = 4; // the last slot is empty

    const struct {
        int ref, id;
        DMaterial* expect;
    } cases[] = {
        {1, -1, sub[0]}, {1, 0, sub[0]}, {1, 1, sub[1]}, {1, 2, sub[1]}, {1, 99, sub[1]},
        {0, 7, m[0]},    {2, -3, m[2]},  {-4, 1, m[0]},  {3, 0, nullptr}, {50, 0, nullptr},
    };
    for (const auto& c : cases) {
        g.materialRef = c.ref;
        EXPECT_EQ(c.expect, g.GetBurstMaterial(c.id)) << c.ref << " " << c.id;
    }
    geode.materials[3] = m[2];
    g.materialRef = 50; // beyond the table: its last material
    EXPECT_EQ(m[2], g.GetBurstMaterial(0));
    geode.materials[3] = nullptr;
}

TEST_F(DGeobTest, NormalsAreNormalisedSumsOfUnitFaceNormals)
{
    // Vertex 0 is shared by a large face in the x-y plane and a small one in the y-z plane; each
    // face counts the same, whatever its area. Vertex 4 is used only by the small face, vertex 5
    // by none, vertices 6 to 8 form a face without area.
    std::vector<float> p = {0, 0, 0, 100, 0, 0, 0, 100, 0, 0, 0, 1, 0, 1, 0, 9, 9, 9, 1, 1, 1, 2, 2, 2, 3, 3, 3};
    DGeob* g = MakeGeob(&geode, p, {0, 1, 2, 0, 4, 3, 6, 7, 8});
    g->RethinkNormals();
    ASSERT_NE(nullptr, g->normal);
    float s = 1 / std::sqrt(2.0f);
    ExpectVector(g->normal + 0, s, 0, s, "shared");
    ExpectVector(g->normal + 3, 0, 0, 1, "large face only");
    ExpectVector(g->normal + 12, 1, 0, 0, "small face only");
    ExpectVector(g->normal + 15, 0, 1, 0, "unused");
    ExpectVector(g->normal + 18, 0, 1, 0, "no area");
    delete g;

    DGeob empty(&geode);
    empty.RethinkNormals();
    EXPECT_EQ(nullptr, empty.normal);
}

TEST_F(DGeobTest, NormalsCoverEveryBurst)
{
    DGeob* g = MakeGeob(&geode, {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 0, 0, 5, 0, 1, 5, 1, 0}, {0, 1, 2, 3, 4, 5});
    g->bursts = 2;
    g->burstStart[0] = 0, g->burstCount[0] = 9, g->burstVperP[0] = 3;
    g->burstStart[1] = 9, g->burstCount[1] = 9, g->burstVperP[1] = 3;
    g->EnsureNormals();
    ExpectVector(g->normal + 9, -1, 0, 0, "second burst");
    g->normal[0] = 42;
    g->EnsureNormals(); // there are normals: nothing is computed
    EXPECT_EQ(42, g->normal[0]);
    delete g;
}

// A strip of two quads in the x-y plane whose texture is mirrored at the middle column:
//   3 - 4 - 5      u: 0 1 0
//   0 - 1 - 2      v: rows 0 and 1
class MirroredStrip : public DGeobTest {
protected:
    void SetUp() override
    {
        g = MakeGeob(&geode, {0, 0, 0, 1, 0, 0, 2, 0, 0, 0, 1, 0, 1, 1, 0, 2, 1, 0},
                     {0, 1, 4, 0, 4, 3, 1, 2, 5, 1, 5, 4}, {0, 0, 1, 0, 0, 0, 0, 1, 1, 1, 0, 1});
        g->tvertex[1] = CopyArray(std::vector<float>{10, 20, 11, 21, 12, 22, 13, 23, 14, 24, 15, 25});
        g->vcolor = CopyArray(std::vector<float>{0.0f, 0.1f, 0.2f, 1.0f, 1.1f, 1.2f, 2.0f, 2.1f, 2.2f,
                                                 3.0f, 3.1f, 3.2f, 4.0f, 4.1f, 4.2f, 5.0f, 5.1f, 5.2f});
        g->ovrt = CopyArray(std::vector<float>(18, 0.0f));
        for (int v = 0; v < 6; v++) g->ovrt[v * 3] = float(v);
    }
    void TearDown() override { delete g; }

    DGeob* g = nullptr;
};

TEST_F(MirroredStrip, TangentsSplitTheMirroredVertices)
{
    g->EnsureTangents();
    // The first right-hand triangle moves vertex 1 to a new twin 6; the second reuses that twin
    // and moves vertex 4 to twin 7.
    EXPECT_EQ(8, g->vertices);
    const unsigned short index[] = {0, 1, 4, 0, 4, 3, 6, 2, 5, 6, 5, 7};
    for (int i = 0; i < 12; i++) EXPECT_EQ(index[i], g->index[i]) << i;
    const int twins[][2] = {{1, 6}, {4, 7}};
    for (const auto& t : twins) {
        for (int k = 0; k < 3; k++) {
            EXPECT_EQ(g->vertex[t[0] * 3 + k], g->vertex[t[1] * 3 + k]);
            EXPECT_EQ(g->normal[t[0] * 3 + k], g->normal[t[1] * 3 + k]);
            EXPECT_EQ(g->vcolor[t[0] * 3 + k], g->vcolor[t[1] * 3 + k]);
            EXPECT_EQ(g->ovrt[t[0] * 3 + k], g->ovrt[t[1] * 3 + k]);
        }
        for (int c = 0; c < 2; c++)
            for (int k = 0; k < 2; k++) EXPECT_EQ(g->tvertex[c][t[0] * 2 + k], g->tvertex[c][t[1] * 2 + k]);
    }
    // Left of the mirror the tangent runs along +x, right of it along -x with the other hand.
    const float tangents[8][4] = {{1, 0, 0, 1},  {1, 0, 0, 1},   {-1, 0, 0, -1}, {1, 0, 0, 1},
                                  {1, 0, 0, 1},  {-1, 0, 0, -1}, {-1, 0, 0, -1}, {-1, 0, 0, -1}};
    for (int v = 0; v < 8; v++)
        for (int k = 0; k < 4; k++) EXPECT_NEAR(tangents[v][k], g->tangent[v * 4 + k], 1e-6f) << v << " " << k;
}

TEST_F(MirroredStrip, OutOfMemoryLeavesTheGeobAsItWas)
{
    g->RethinkNormals();
    const std::vector<unsigned short> index(g->index, g->index + 12);
    CaptureStderr();
    for (int fail = 1; fail < 50 && !g->tangent; fail++) {
        int before = qGetAllocCount();
        qSetAllocFailure(fail);
        CalculateTangentArray(g->vertices, g->vertex, g->normal, g, g->tvertex[0], 4, g->index);
        qSetAllocFailure(0);
        if (g->tangent) break;
        // The failed allocation counts; nothing else may stay.
        if (before + 1 != qGetAllocCount() || g->vertices != 6 ||
            index != std::vector<unsigned short>(g->index, g->index + 12)) {
            ADD_FAILURE() << "allocation " << fail << " failing changed the geob";
            break;
        }
    }
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("No memory for tangents"));
    EXPECT_EQ(8, g->vertices);
}

TEST_F(DGeobTest, TangentsWithoutNormalsOrTextureArea)
{
    DGeob* g = MakeGeob(&geode, {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}, {0.5f, 0.5f, 0.5f, 0.5f, 0.5f, 0.5f});
    CaptureStderr();
    CalculateTangentArray(3, g->vertex, nullptr, g, g->tvertex[0], 1, g->index);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("CalculateTangentArray needs normals for geob; now normal=0"));
    EXPECT_EQ(nullptr, g->tangent);

    g->EnsureTangents(); // a texture triangle without area: no division by 0, the default tangent
    ASSERT_NE(nullptr, g->tangent);
    for (int v = 0; v < 3; v++) {
        const float* t = g->tangent + v * 4;
        EXPECT_EQ(0.0f, t[0]);
        EXPECT_EQ(1.0f, t[1]);
        EXPECT_EQ(0.0f, t[2]);
        EXPECT_EQ(1.0f, t[3]);
    }
    delete g;
}

// Buffers follow the arrays: after new normals they are made anew, and where that fails (no
// OpenGL here) the feature is off for the geob.
TEST_F(DGeobTest, NewNormalsRemakeTheBuffers)
{
    DGeob* g = MakeGeob(&geode, {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2});
    g->flags = DGEOB_VBO | DGEOB_VBO_ADJACENCY | DGEOB_TRANSPARENT_PASS;
    g->vertexBuffer = 5; // a name from an earlier upload
    CaptureStderr();
    g->RethinkNormals();
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("DGeob:EnableVBO(); can't generate VBO buffers (car.dof)"));
    EXPECT_EQ(uint32_t(DGEOB_TRANSPARENT_PASS), g->flags);
    EXPECT_EQ(0u, g->vertexBuffer);
    delete g;
}
