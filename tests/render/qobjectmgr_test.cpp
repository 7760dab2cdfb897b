// The object caches: the tables behind Get and Release, the listing of what is held, the report
// of what was never given back, and the geode cache's roads to a file.
#include "render/qobjectmgr.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qobject.h"
#include "images/qarchive.h"
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "tests/render/rendertest.h"
#include "tests/support/testsupport.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// Opens the tables of any cache to the test.
template <class M> struct Tables : M {
    template <class... A> explicit Tables(A... args) : M(args...) {}
    void Put(const char* name, void* object, int count, int skin = 0)
    {
        int i = this->numObjects++;
        this->names[i] = qstrdup(name);
        this->objects[i] = object;
        this->refCounts[i] = count;
        this->skins[i] = skin;
    }
};

// Objects are numbers; names starting with "bad" can't be made; ResolveName adds a folder.
struct Counting : QObjectManager {
    explicit Counting(int max) : QObjectManager(max) {}
    void ResolveName(qstring& name) override { name = ("dir/" + std::string(name.cstr())).c_str(); }
    void* MakeObject(const char* name) override
    {
        made.push_back(name);
        return std::string(name).rfind("dir/bad", 0) == 0 ? nullptr : reinterpret_cast<void*>(uintptr_t(made.size()));
    }
    void DestroyObject(void* object) override { destroyed.push_back(uintptr_t(object)); }
    std::vector<std::string> made;
    std::vector<uintptr_t> destroyed;
};

static std::string Ptr(uintptr_t v)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", reinterpret_cast<void*>(v));
    return text;
}

class QObjectManagerTest : public testing::Test {
protected:
    void TearDown() override { d3FreeDGlobal(); }
    test::TempDir dir{true}; // the warnings' QLOG.txt
};

TEST_F(QObjectManagerTest, GetMakesOnMissAndReleaseDestroysAtZero)
{
    Counting m(2);
    void* a = m.Get("a", 0);
    EXPECT_EQ(m.Get("a", 0), a);
    void* a1 = m.Get("a", 1); // another skin is another entry
    EXPECT_NE(a1, a);
    EXPECT_EQ(m.made, (std::vector<std::string>{"dir/a", "dir/a"}));
    EXPECT_STREQ(m.GetName(0), "a"); // the key is the name as asked
    EXPECT_EQ(m.GetRefCount(0), 2);

    CaptureStderr();
    EXPECT_EQ(m.Get("c", 0), nullptr); // full: made, then given back
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "QObjMgr: no room for 'c' (max=2)"));
    EXPECT_EQ(m.destroyed, (std::vector<uintptr_t>{3}));
    EXPECT_EQ(m.Get("bad", 0), nullptr); // nothing made, nothing entered
    EXPECT_EQ(m.GetNumObjects(), 2);

    EXPECT_TRUE(m.Release(a));
    EXPECT_EQ(m.destroyed.size(), 1u);
    EXPECT_TRUE(m.Release(a));
    EXPECT_EQ(m.destroyed.back(), uintptr_t(a));
    EXPECT_EQ(m.GetNumObjects(), 1);
    EXPECT_EQ(m.GetObject(0), a1); // moved down
    EXPECT_EQ(m.GetSkin(0), 1);
    EXPECT_FALSE(m.Release(a));
    EXPECT_EQ(m.Find("a", 1), 0);
    EXPECT_EQ(m.Find("a", 0), -1);
    EXPECT_TRUE(m.Release(a1));
}

TEST_F(QObjectManagerTest, BaseMakesTheMarkerNotNull)
{
    QObjectManager m(3);
    qstring name("x");
    m.ResolveName(name);
    EXPECT_EQ(name, "x");
    EXPECT_EQ(m.MakeObject("x"), reinterpret_cast<void*>(uintptr_t(0xDEADBEEF)));
}

// Every listing holds the entries with a count above 0 only, and counts those alone.
TEST_F(QObjectManagerTest, ListingsOfEachCache)
{
    const std::string p = Ptr(0x10);
    struct Case {
        QObjectManager* m;
        std::string held, empty; // the output with entries 'a' (2) and 'b' (0), and with none
    };
    auto fill = [](auto* m) {
        m->Put("a", reinterpret_cast<void*>(uintptr_t(0x10)), 2, 7);
        m->Put("b", reinterpret_cast<void*>(uintptr_t(0x20)), 0);
        return m;
    };
    std::vector<Case> cases = {
        {fill(new Tables<QObjectManager>(10)),
         "QObjectManager (cap); 2 potential references\n  ref[0]=" + p + ": 'a' (skin=7,refCount 2)\n",
         "QObjectManager (cap); 0 potential references\n"},
        {fill(new Tables<DTextureManager>()),
         "DTextureManager (cap)\n  tex[0]=" + p + ": 'a' (refCount 2)\nDTextureManager:DbgPrint(); 1 textures NOT RELEASED\n",
         "DTextureManager (cap)\nDTextureManager:DbgPrint(); all textures released\n"},
        {fill(new Tables<DGPUProgramManager>()),
         // Its caption and totals come without line ends, as they always have.
         "DGPUProgramManager:DbgPrint(cap); 2 potential gpu shaders  gpuShader[0]=" + p +
             ": 'a' (refCount 2)\nDGPUProgramManager:DbgPrint(); 1 gpu shaders NOT RELEASED",
         "DGPUProgramManager:DbgPrint(cap); 0 potential gpu shadersDGPUProgramManager:DbgPrint(); all gpu shaders released"},
        {fill(new Tables<DGeodeManager>(10)),
         "DGeodeManager (cap); 2 potential geodes\n  geode[0]=" + p + ": 'a' (refCount 2)\n",
         "DGeodeManager (cap); 0 potential geodes\n"},
    };
    for (Case& c : cases) {
        CaptureStderr();
        c.m->DbgPrint("cap");
        EXPECT_EQ(GetCapturedStderr(), c.held);
        // Both entries still hold an object, whatever their count: both are named at the end.
        CaptureStderr();
        c.m->Destroy();
        std::string err = GetCapturedStderr();
        EXPECT_TRUE(rtest::HasText(err, "QObjMgr: object 'a' still around with 2 reference(s)"));
        EXPECT_TRUE(rtest::HasText(err, "QObjMgr: object 'b' still around with 0 reference(s)"));
        EXPECT_EQ(c.m->GetNumObjects(), 0);
        CaptureStderr();
        c.m->DbgPrint("cap");
        c.m->Destroy(); // once only
        EXPECT_EQ(GetCapturedStderr(), c.empty);
        CaptureStderr();
        delete c.m;
        GetCapturedStderr();
    }
}

TEST_F(QObjectManagerTest, EmptyOrReleasedCacheEndsSilently)
{
    Tables<QObjectManager>* m = new Tables<QObjectManager>(4);
    m->Put("gone", nullptr, 0);
    CaptureStderr();
    delete m;
    EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(QObjectManagerTest, ProgramCacheMakesNothing)
{
    DGPUProgramManager* m = new DGPUProgramManager;
    CaptureStderr();
    EXPECT_EQ(m->Get("p.glsl"), nullptr);
    delete m;
    std::string err = GetCapturedStderr();
    EXPECT_TRUE(rtest::HasText(err, "DGPUProgramManager:MakeObject(p.glsl) called in non-GLSL version - will not work"));
    EXPECT_TRUE(rtest::HasText(err, "DGPUProgramManager dtor\n"));
}

TEST_F(QObjectManagerTest, LeftoverTextureIsReportedWhenDGlobalGoes)
{
    CaptureStderr();
    d3GetDGlobal()->flags &= ~D3_USE_OPENGL;
    DTextureManager* cache = d3GetDGlobal()->textureManager;
    void* tex = cache->Get("missing.tga");
    ASSERT_NE(tex, nullptr);
    d3FreeDGlobal();
    std::string err = GetCapturedStderr();
    EXPECT_TRUE(rtest::HasText(err, "QObjMgr: object 'missing.tga' still around with 1 reference(s)"));
    delete static_cast<DTexture*>(tex); // never created: count 0, so no complaint
}

// The geode cache asks the model library, through its hooks, to read what it opened.
struct ImportLog {
    static std::vector<std::string> calls; // "name|file name|first bytes"
    static void* Import(const char* name, QFile* file)
    {
        char head[4] = {};
        file->Read(head, 3);
        calls.push_back(std::string(name) + "|" + file->GetName() + "|" + head);
        return head[0] == 'o' ? new QObject : nullptr;
    }
    static void Delete(void* geode) { delete static_cast<QObject*>(geode); }
};
std::vector<std::string> ImportLog::calls;

static void PutU32(std::string& s, uint32_t v)
{
    for (int i = 0; i < 4; i++) s += char(v >> (8 * i) & 0xFF);
}

// An archive with one member stored as it is.
static std::string ArchiveWith(const std::string& name, const std::string& data)
{
    std::string member = "D";
    member += char((data.size() + 1) & 0xFF), member += char((data.size() + 1) >> 8);
    member += char(QArchive::STORED_CHUNK) + data + std::string(2, '\0');
    std::string directory = name + '\0';
    PutU32(directory, QArchive::HEADER_SIZE);
    PutU32(directory, uint32_t(data.size()));
    std::string file = "QARC";
    PutU32(file, QArchive::VERSION);
    PutU32(file, uint32_t(QArchive::HEADER_SIZE + member.size()));
    PutU32(file, uint32_t(directory.size()));
    return file + member + directory;
}

TEST_F(QObjectManagerTest, GeodeCacheReadsDiskThenArchive)
{
    test::WriteFile(dir.File("disk.dof"), "ok-disk");
    test::WriteFile(dir.File("bad.dof"), "no");
    std::string packed = ArchiveWith("packed.dof", "ok-packed");
    QArchive archive;
    ASSERT_TRUE(archive.OpenMemory("cars.qar", packed.data(), packed.size()));

    DGeodeManager m(10);
    CaptureStderr();
    EXPECT_EQ(m.MakeObject("disk.dof"), nullptr); // no model library yet
    EXPECT_TRUE(rtest::HasText(GetCapturedStderr(), "DGeodeManager:MakeObject(disk.dof); no model reader"));

    const DGeodeHooks hooks = {ImportLog::Import, ImportLog::Delete};
    d3GeodeHooks = &hooks;
    void* disk = m.Get("disk.dof");
    EXPECT_NE(disk, nullptr);
    EXPECT_EQ(m.Get("bad.dof"), nullptr);
    EXPECT_EQ(m.Get("packed.dof"), nullptr); // no archive yet
    m.SetArchive(&archive, "cars");
    void* packedGeode = m.Get("packed.dof");
    EXPECT_NE(packedGeode, nullptr);
    EXPECT_EQ(ImportLog::calls,
              (std::vector<std::string>{"disk.dof|disk.dof|ok-", "bad.dof|bad.dof|no", "packed.dof|cars/packed.dof|ok-"}));
    EXPECT_TRUE(m.Release(disk));
    EXPECT_TRUE(m.Release(packedGeode));
    EXPECT_EQ(m.GetNumObjects(), 0);
    d3GeodeHooks = nullptr;
}

} // namespace
} // namespace tarvik
