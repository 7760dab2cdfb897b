// Geometry figures: DGeob::BuildAdjacency against the plain search of every edge through the whole
// list, on a closed mesh (a torus grid, each edge shared by two triangles) and on a soup of random
// triangles over as many vertices, at three sizes; then normals and tangents on the largest mesh.
// The two adjacency lists must be equal, or the program says so and fails.
//   adjacency [rounds]      (rounds: best of that many runs of ours, default 5; the plain search runs once)
#include "foundation/qhelpers.h"
#include "models/dgeob.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

using namespace tarvik;

namespace {

typedef std::vector<unsigned short> Indices;

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The search as the model code states it: for each index, every triangle from the first on.
std::vector<unsigned short> PlainAdjacency(const Indices& index)
{
    int count = int(index.size()), triangles = count / 3;
    std::vector<unsigned short> out(size_t(count) * 3, 0xFFFF);
    for (int i = 0; i < count; i++) {
        out[i] = index[i];
        out[count + i * 2] = index[i];
        int t = i / 3, k = i % 3;
        if (t >= triangles) continue;
        int a = index[i], b = index[t * 3 + (k + 1) % 3], c = index[t * 3 + (k + 2) % 3];
        if (a == b || b == c || a == c) continue;
        for (int u = 0; u < triangles; u++) {
            const unsigned short* v = &index[u * 3];
            bool hasA = v[0] == a || v[1] == a || v[2] == a;
            bool hasB = v[0] == b || v[1] == b || v[2] == b;
            bool hasC = v[0] == c || v[1] == c || v[2] == c;
            if (!hasA || !hasB || hasC) continue;
            for (int m = 0; m < 3; m++)
                if (v[m] != a && v[m] != b) {
                    out[count + i * 2 + 1] = v[m];
                    break;
                }
            break;
        }
    }
    return out;
}

struct Mesh {
    std::vector<float> vertex, uv;
    Indices index;
};

// A torus of rings x sides quads, two triangles each, wrapped both ways so that every edge has two
// triangles. The texture is mirrored halfway round in u, as an artist maps a symmetric part.
Mesh Torus(int rings, int sides)
{
    Mesh m;
    for (int r = 0; r < rings; r++) {
        for (int s = 0; s < sides; s++) {
            float a = 6.2831853f * r / rings, b = 6.2831853f * s / sides;
            float rad = 3 + std::cos(b);
            m.vertex.insert(m.vertex.end(), {rad * std::cos(a), std::sin(b), rad * std::sin(a)});
            m.uv.insert(m.uv.end(), {std::fabs(2.0f * r / rings - 1), float(s) / sides});
        }
    }
    auto at = [&](int r, int s) { return (unsigned short)((r % rings) * sides + s % sides); };
    for (int r = 0; r < rings; r++) {
        for (int s = 0; s < sides; s++) {
            unsigned short q[4] = {at(r, s), at(r + 1, s), at(r + 1, s + 1), at(r, s + 1)};
            m.index.insert(m.index.end(), {q[0], q[1], q[2], q[0], q[2], q[3]});
        }
    }
    return m;
}

Indices Soup(int count, int vertices, unsigned seed)
{
    std::mt19937 rng(seed);
    Indices index(static_cast<size_t>(count));
    for (auto& i : index) i = (unsigned short)(rng() % unsigned(vertices));
    return index;
}

double BestOfOurs(const Indices& index, int rounds, std::vector<unsigned short>& result)
{
    double best = 1e30;
    for (int r = 0; r < rounds; r++) {
        double t0 = Now();
        unsigned short* adj = DGeob::BuildAdjacency(index.data(), int(index.size()));
        double t = Now() - t0;
        if (!adj) {
            std::fprintf(stderr, "BuildAdjacency failed\n");
            std::exit(1);
        }
        if (t < best) best = t;
        result.assign(adj, adj + index.size() * 3);
        qfree(adj);
    }
    return best;
}

// A geob over copies of the mesh's arrays, so that each run starts from the same data.
DGeob* MakeGeob(const Mesh& m)
{
    DGeob* g = new DGeob(nullptr);
    g->vertices = int(m.vertex.size() / 3);
    g->indices = int(m.index.size());
    g->vertex = static_cast<float*>(qmalloc(m.vertex.size() * sizeof(float)));
    g->tvertex[0] = static_cast<float*>(qmalloc(m.uv.size() * sizeof(float)));
    g->index = static_cast<unsigned short*>(qmalloc(m.index.size() * sizeof(unsigned short)));
    std::memcpy(g->vertex, m.vertex.data(), m.vertex.size() * sizeof(float));
    std::memcpy(g->tvertex[0], m.uv.data(), m.uv.size() * sizeof(float));
    std::memcpy(g->index, m.index.data(), m.index.size() * sizeof(unsigned short));
    return g;
}

} // namespace

int main(int argc, char** argv)
{
    int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
    if (rounds < 1) rounds = 1;
    struct Size {
        int rings, sides;
    } sizes[] = {{25, 20}, {100, 50}, {157, 69}}; // 3 000, 30 000 and 64 998 indices

    std::printf("--- BuildAdjacency: ours best of %d, the plain search once; milliseconds\n", rounds);
    std::printf("%-8s %9s %9s %11s %13s %9s\n", "mesh", "indices", "vertices", "ours ms", "plain ms", "speed-up");
    bool same = true;
    for (const Size& s : sizes) {
        Mesh torus = Torus(s.rings, s.sides);
        int vertices = s.rings * s.sides;
        Indices soup = Soup(int(torus.index.size()), vertices, 12345u + unsigned(vertices));
        const struct {
            const char* name;
            const Indices* index;
        } meshes[] = {{"closed", &torus.index}, {"soup", &soup}};
        for (const auto& mesh : meshes) {
            std::vector<unsigned short> ours;
            double tOurs = BestOfOurs(*mesh.index, rounds, ours);
            double t0 = Now();
            std::vector<unsigned short> plain = PlainAdjacency(*mesh.index);
            double tPlain = Now() - t0;
            if (ours != plain) {
                std::printf("%s of %zu indices: the lists differ\n", mesh.name, mesh.index->size());
                same = false;
            }
            std::printf("%-8s %9zu %9d %11.3f %13.1f %8.0fx\n", mesh.name, mesh.index->size(), vertices, tOurs * 1e3,
                        tPlain * 1e3, tPlain / (tOurs > 0 ? tOurs : 1e-9));
        }
    }

    const Size& big = sizes[2];
    Mesh torus = Torus(big.rings, big.sides);
    double tNormals = 1e30, tTangents = 1e30;
    int before = 0, after = 0;
    for (int r = 0; r < rounds; r++) {
        DGeob* g = MakeGeob(torus);
        double t0 = Now();
        g->RethinkNormals();
        double t1 = Now();
        before = g->vertices;
        CalculateTangentArray(g->vertices, g->vertex, g->normal, g, g->tvertex[0], g->indices / 3, g->index);
        double t2 = Now();
        after = g->vertices;
        if (t1 - t0 < tNormals) tNormals = t1 - t0;
        if (t2 - t1 < tTangents) tTangents = t2 - t1;
        delete g;
    }
    std::printf("--- closed mesh of %zu indices, best of %d; milliseconds\n", torus.index.size(), rounds);
    std::printf("RethinkNormals         %8.3f\n", tNormals * 1e3);
    std::printf("CalculateTangentArray  %8.3f   (vertices %d -> %d after the mirror split)\n", tTangents * 1e3,
                before, after);
    return same ? 0 : 1;
}
