// Cases for DGeob::BuildAdjacency: the edge table against the plain search through the whole list.
#include "models/dgeob.h"

#include "foundation/qhelpers.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace tarvik;

namespace {

typedef std::vector<unsigned short> List;

// For each index, every triangle from the first on; the first with a and b and not c decides.
List PlainSearch(const List& index)
{
    int count = int(index.size()), triangles = count / 3;
    List out(index);
    for (int i = 0; i < count; i++) {
        unsigned short neighbour = 0xFFFF;
        int t = i / 3, k = i % 3;
        int a = index[i], b = t < triangles ? index[t * 3 + (k + 1) % 3] : -1, c = t < triangles ? index[t * 3 + (k + 2) % 3] : -1;
        for (int u = 0; u < triangles && b >= 0 && a != b && b != c && a != c; u++) {
            const unsigned short* v = &index[u * 3];
            auto has = [v](int x) { return v[0] == x || v[1] == x || v[2] == x; };
            if (!has(a) || !has(b) || has(c)) continue;
            for (int m = 0; m < 3 && neighbour == 0xFFFF; m++)
                if (v[m] != a && v[m] != b) neighbour = v[m];
            break;
        }
        out.push_back((unsigned short)a);
        out.push_back(neighbour);
    }
    return out;
}

List Build(const List& index)
{
    unsigned short* adj = DGeob::BuildAdjacency(index.data(), int(index.size()));
    List out(adj, adj + index.size() * 3);
    qfree(adj);
    return out;
}

// Only the neighbours: the second of each pair.
List Neighbours(const List& index)
{
    List all = Build(index), out;
    for (size_t i = 0; i < index.size(); i++) out.push_back(all[index.size() + i * 2 + 1]);
    return out;
}

const unsigned short none = 0xFFFF;

} // namespace

TEST(AdjacencyTest, Neighbours)
{
    const struct {
        const char* what;
        List index, neighbours;
    } cases[] = {
        {"one triangle: boundary edges", {0, 1, 2}, {none, none, none}},
        {"two across an edge", {0, 1, 2, 2, 1, 3}, {none, 3, none, 0, none, none}},
        {"three on one edge: the first other one", {0, 1, 2, 1, 0, 3, 0, 1, 4}, {3, none, none, 2, none, none, 2, none, none}},
        {"a copy of the triangle doesn't count", {0, 1, 2, 2, 1, 0, 1, 0, 3}, {3, none, none, none, 3, none, 2, none, none}},
        {"the first with the edge is degenerate", {0, 1, 2, 0, 1, 1, 1, 0, 3}, {none, none, none, none, none, none, 2, none, none}},
        {"degenerate behind a real one", {0, 1, 2, 1, 0, 3, 0, 1, 1}, {3, none, none, 2, none, none, none, none, none}},
        {"indices behind the last triangle", {0, 1, 2, 2, 1}, {none, none, none, none, none}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.neighbours, Neighbours(c.index)) << c.what;
        EXPECT_EQ(PlainSearch(c.index), Build(c.index)) << c.what;
    }
    unsigned short* empty = DGeob::BuildAdjacency(nullptr, 0);
    EXPECT_NE(nullptr, empty);
    qfree(empty);
}

// Random lists over few vertices have many shared edges, copies, reversed copies and degenerate
// triangles, and sometimes a piece of a triangle at the end. The last rounds are long lists over
// the whole range of vertex numbers, for a full edge table.
TEST(AdjacencyTest, EqualsThePlainSearchOnRandomLists)
{
    std::mt19937 rng(20240611u);
    for (int round = 0; round < 4020; round++) {
        bool big = round >= 4000;
        int vertices = 1 + int(rng() % (round < 2000 ? 6 : big ? 300 : 40));
        int count = big ? 1500 + round % 3 : int(rng() % 61);
        List number(static_cast<size_t>(vertices)); // the vertex numbers in use
        for (size_t v = 0; v < number.size(); v++) number[v] = (unsigned short)(big ? rng() : v);
        List index(static_cast<size_t>(count));
        for (auto& i : index) i = number[rng() % unsigned(vertices)];
        if (round % 7 == 0 && count >= 6) { // a triangle repeated in another turn
            int from = int(rng() % unsigned(count / 3)) * 3, to = int(rng() % unsigned(count / 3)) * 3;
            for (int k = 0; k < 3; k++) index[to + k] = index[from + (k + 1) % 3];
        }
        if (round % 11 == 0 && count > 0) index.back() = 0xFFFF; // the highest vertex number
        ASSERT_EQ(PlainSearch(index), Build(index)) << "round " << round;
    }
}
