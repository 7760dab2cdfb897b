// The extension manager fed through its source seam, the current-context record of Select, and the
// debug output's texts: all without a display.
#include "toolkit/glext.h"

#include "tests/support/testsupport.h"
#include "toolkit/qglcontext.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// What the fake driver says and resolves.
const char* extensions;
const char* version;
std::string missing; // the one function it lacks
std::vector<std::string> resolved;
int extensionReads;
GLLExtensionManager* watched; // its state is noted when the named functions resolve
std::string stateAt;

const char* FakeString(GLenum name)
{
    if (name == GL_EXTENSIONS) {
        extensionReads++;
        return extensions;
    }
    return name == GL_VERSION ? version : "fake";
}

void* FakeProc(const char* name)
{
    resolved.push_back(name);
    if (watched && (resolved.back() == "glGetQueryObjectui64v" || resolved.back() == "glTexImage3D"))
        stateAt += std::to_string(watched->GetState());
    static int anything;
    return missing == name ? nullptr : &anything;
}

const GLLSource fake = {FakeString, FakeProc};

int Count(const std::string& text, const std::string& what)
{
    int n = 0;
    for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1))
        n++;
    return n;
}

class GLLExtensionManagerTest : public testing::Test {
protected:
    void SetUp() override
    {
        extensions = "GL_ARB_multitexture GL_EXT_blend_color";
        version = "2.1 fake";
        missing.clear();
        resolved.clear();
        extensionReads = 0;
        watched = nullptr;
        stateAt.clear();
    }
    test::TempDir dir{true}; // the warnings' QLOG.txt
};

TEST_F(GLLExtensionManagerTest, HasMatchesWholeWordsOnly)
{
    struct Case {
        const char* list;
        const char* name;
        bool has;
        int reads; // of GL_EXTENSIONS
    } cases[] = {
        {"GL_ARB_multitexture GL_EXT_blend_color", "GL_ARB_multitexture", true, 1},
        {"GL_ARB_multitexture GL_EXT_blend_color", "GL_EXT_blend_color", true, 1},
        {"GL_ARB_multitexture GL_EXT_blend_color", "GL_ARB_multi", false, 1},
        {"GL_ARB_multitexture GL_EXT_blend_color", "ARB_multitexture", false, 1},
        {"GL_ARB_multitexture GL_EXT_blend_color", "GL_EXT_blend", false, 1},
        {"GL_EXT_blend_color_x GL_EXT_blend_color ", "GL_EXT_blend_color", true, 1}, // found at the second try
        {"GL_ARB_multitexture", "", false, 0},
        {"GL_ARB_multitexture GL_EXT_blend_color", "GL_ARB_multitexture GL_EXT_blend_color", false, 0},
        {nullptr, "GL_ARB_multitexture", false, 1},
    };
    for (const Case& c : cases) {
        extensions = c.list;
        extensionReads = 0;
        GLLExtensionManager m(&fake);
        EXPECT_EQ(m.Has(c.name), c.has) << c.name << " in " << (c.list ? c.list : "null");
        EXPECT_EQ(extensionReads, c.reads) << c.name;
        EXPECT_TRUE(m.GetVersion() == "2.1 fake"); // refreshed by every call, even a refused name
    }
}

TEST_F(GLLExtensionManagerTest, CheckExtensionsSetsBitsAndReportsMissingFunctions)
{
    const char* all = "GL_ARB_multitexture GL_ARB_texture_compression GL_ARB_texture_env_add "
                      "GL_ARB_texture_env_combine GL_ARB_texture_env_dot3 GL_EXT_blend_color "
                      "GL_EXT_separate_specular_color GL_EXT_texture_filter_anisotropic GL_EXT_texture_lod_bias "
                      "GL_NV_fog_distance GL_EXT_compiled_vertex_array GL_ARB_vertex_buffer_object "
                      "GL_EXT_framebuffer_object GL_ARB_geometry_shader4 GL_EXT_packed_depth_stencil "
                      "GL_EXT_framebuffer_multisample GL_EXT_framebuffer_blit "
                      "GL_NV_framebuffer_multisample_coverage GL_ARB_debug_output";
    const char* vboWarning = "QOpenGL: ARB_vertex_buffer_object extension found but not all functions resolved";
    const char* glslWarning = "OpenGL version less than 2; no GLSL support";
    struct Case {
        const char* list;
        const char* version;
        const char* missing;
        uint32_t flags;
        int errors;
        const char* warning; // the one of the two expected, or null for neither
    } cases[] = {
        {all, "4.5 (Compatibility Profile)", "", 0x1FFFF, 0, nullptr},
        {"GL_ARB_vertex_buffer_object", "2.1", "glMapBufferARB", 0, 1, vboWarning},
        {"GL_ARB_vertex_buffer_object", "2.1", "glTexImage3D", 0x100, 1, nullptr}, // not one of the eleven
        {"GL_ARB_multitexture", "1.5", "", 0x1, 0, glslWarning},
        {"GL_ARB_multitexture", "", "", 0x1, 0, glslWarning},
        {"GL_ARB_multitexture", "2", "glCreateShader", 0x1, 1, nullptr},
    };
    for (const Case& c : cases) {
        extensions = c.list;
        version = c.version;
        missing = c.missing;
        gll::glCreateShader = nullptr;
        GLLExtensionManager m(&fake);
        CaptureStderr();
        m.CheckExtensions();
        std::string err = GetCapturedStderr();
        SCOPED_TRACE(std::string(c.list).substr(0, 30) + " / " + c.version + " / " + c.missing);
        EXPECT_EQ(m.GetFlags(), c.flags);
        EXPECT_EQ(Count(err, "wglGetProcAddress("), c.errors) << err;
        EXPECT_EQ(Count(err, "wglGetProcAddress(" + missing + ") failed"), c.errors) << err;
        EXPECT_EQ(Count(err, vboWarning), c.warning == vboWarning) << err;
        EXPECT_EQ(Count(err, glslWarning), c.warning == glslWarning) << err;
        // The shading language group comes with a version of 2 or above, and only then.
        bool glsl = c.version[0] >= '2' && missing != "glCreateShader";
        EXPECT_EQ(gll::glCreateShader != nullptr, glsl);
    }
}

TEST_F(GLLExtensionManagerTest, WorkIsDoneOncePerManagerAndStateIsSetBeforeTheLastFour)
{
    GLLExtensionManager m(&fake);
    watched = &m;
    m.CheckExtensions();
    size_t once = resolved.size();
    ASSERT_EQ(once, 2 + 1 + 1 + 4 + 11 + 4 + 36u); // the two extensions' and the four unconditional groups, GLSL
    EXPECT_EQ(stateAt, "01"); // clear at the query group's end, set at the first of the last four
    EXPECT_EQ(resolved[3], "glBlendFuncSeparate"); // behind multitexture and blend colour
    EXPECT_EQ(resolved[once - 1], "glDeleteVertexArrays");

    m.CheckExtensions();
    EXPECT_EQ(resolved.size(), once);
    GLLExtensionManager second(&fake); // another context's manager resolves the pointers again
    second.CheckExtensions();
    EXPECT_EQ(resolved.size(), 2 * once);
}

// Contexts on no drawable are refused by the driver, so the record of the current context can be
// watched alone.
TEST(QGLContextTest, ForcedSelectLeavesTheRecordAlone)
{
    test::TempDir dir{true};
    const char* notX = "QGLContext:Select(); drawable doesn't seem to be a QXWindow";
    CaptureStderr();
    QGLContext* a = new QGLContext(nullptr, 0, nullptr, 0);
    QGLContext* b = new QGLContext(nullptr, 0, nullptr, 0);
    std::string err = GetCapturedStderr();
    EXPECT_EQ(Count(err, "QGLContext(); wglCreateContext() failed to create OpenGL context; does not look good!"), 2);

    struct Step {
        QGLContext* context;
        int selFlags;
        QGLContext* current; // after the step
        int reports;         // of the drawable
    } steps[] = {
        {a, 0, a, 1},
        {a, 0, a, 0}, // current already: nothing is done
        {b, QGLSEL_FORCE, a, 1},
        {a, 0, a, 0}, // the record still says a, so a does nothing
        {b, QGLSEL_FORCE | QGLSEL_NO_EXTENSIONS, a, 1},
        {b, 0, b, 1},
    };
    for (const Step& s : steps) {
        CaptureStderr();
        s.context->Select(nullptr, 0, s.selFlags);
        err = GetCapturedStderr();
        EXPECT_EQ(QGLContext::GetCurrent(), s.current) << &s - steps;
        EXPECT_EQ(Count(err, notX), s.reports) << &s - steps;
    }
    delete a;
    EXPECT_EQ(QGLContext::GetCurrent(), b);
    delete b;
    EXPECT_EQ(QGLContext::GetCurrent(), nullptr);
}

TEST(QGLContextTest, DebugOutputTexts)
{
    test::TempDir dir{true};
    struct Case {
        unsigned source, type, severity;
        const char* line;
    } cases[] = {
        {GL_DEBUG_SOURCE_API_ARB, GL_DEBUG_TYPE_ERROR_ARB, GL_DEBUG_SEVERITY_HIGH_ARB,
         "OpenGL message: m, [source API, type Error, severity High]"},
        {GL_DEBUG_SOURCE_SHADER_COMPILER_ARB, GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR_ARB, GL_DEBUG_SEVERITY_LOW_ARB,
         "[source Shader Compiler, type Undefined Behavior, severity Low]"},
        {GL_DEBUG_SOURCE_THIRD_PARTY_ARB, GL_DEBUG_TYPE_PORTABILITY_ARB, 0, "[source Third Party, type Portability, severity ??]"},
        {0x914E, 0x914D, 0, "[source Shader Compiler, type Performance,"}, // the older categories
        {1, 1, 0, "[source Unknown, type Unknown, severity ??]"},
    };
    for (const Case& c : cases) {
        CaptureStderr();
        QGLErrorCallback(c.source, c.type, 7, c.severity, 1, "m", nullptr);
        std::string err = GetCapturedStderr();
        EXPECT_EQ(Count(err, c.line), 1) << err;
    }
    CaptureStderr();
    QGLErrorCallback(GL_DEBUG_SOURCE_API_ARB, GL_DEBUG_TYPE_ERROR_ARB, 131218, GL_DEBUG_SEVERITY_HIGH_ARB, 1, "m",
                     nullptr);
    std::string err = GetCapturedStderr();
    EXPECT_EQ(Count(err, "OpenGL message 131218 seen - ignored"), 1) << err;
    EXPECT_EQ(Count(err, "OpenGL message:"), 0) << err;
}

} // namespace
} // namespace tarvik
