#include "toolkit/glext.h"

#include "foundation/qmessage.h"
#include "platform/platform_window.h"

#include <cstring>

namespace tarvik {

namespace gll {

PFNGLACTIVETEXTUREARBPROC glActiveTextureARB;
PFNGLCLIENTACTIVETEXTUREARBPROC glClientActiveTextureARB;
PFNGLBLENDCOLORPROC glBlendColor;
PFNGLLOCKARRAYSEXTPROC glLockArraysEXT;
PFNGLUNLOCKARRAYSEXTPROC glUnlockArraysEXT;
PFNGLBLENDFUNCSEPARATEPROC glBlendFuncSeparate;
PFNGLBINDBUFFERARBPROC glBindBufferARB;
PFNGLDELETEBUFFERSARBPROC glDeleteBuffersARB;
PFNGLGENBUFFERSARBPROC glGenBuffersARB;
PFNGLISBUFFERARBPROC glIsBufferARB;
PFNGLBUFFERDATAARBPROC glBufferDataARB;
PFNGLBUFFERSUBDATAARBPROC glBufferSubDataARB;
PFNGLGETBUFFERSUBDATAARBPROC glGetBufferSubDataARB;
PFNGLMAPBUFFERARBPROC glMapBufferARB;
PFNGLUNMAPBUFFERARBPROC glUnmapBufferARB;
PFNGLGETBUFFERPARAMETERIVARBPROC glGetBufferParameterivARB;
PFNGLGETBUFFERPOINTERVARBPROC glGetBufferPointervARB;
PFNGLGENFRAMEBUFFERSEXTPROC glGenFramebuffersEXT;
PFNGLBINDFRAMEBUFFEREXTPROC glBindFramebufferEXT;
PFNGLGENRENDERBUFFERSEXTPROC glGenRenderbuffersEXT;
PFNGLBINDRENDERBUFFEREXTPROC glBindRenderbufferEXT;
PFNGLRENDERBUFFERSTORAGEEXTPROC glRenderbufferStorageEXT;
PFNGLFRAMEBUFFERTEXTURE2DEXTPROC glFramebufferTexture2DEXT;
PFNGLFRAMEBUFFERRENDERBUFFEREXTPROC glFramebufferRenderbufferEXT;
PFNGLCHECKFRAMEBUFFERSTATUSEXTPROC glCheckFramebufferStatusEXT;
PFNGLDELETEFRAMEBUFFERSEXTPROC glDeleteFramebuffersEXT;
PFNGLDELETERENDERBUFFERSEXTPROC glDeleteRenderbuffersEXT;
PFNGLGENERATEMIPMAPEXTPROC glGenerateMipmapEXT;
PFNGLPROGRAMPARAMETERIARBPROC glProgramParameteriARB;
PFNGLRENDERBUFFERSTORAGEMULTISAMPLEEXTPROC glRenderbufferStorageMultisampleEXT;
PFNGLBLITFRAMEBUFFEREXTPROC glBlitFramebufferEXT;
PFNGLRENDERBUFFERSTORAGEMULTISAMPLECOVERAGENVPROC glRenderbufferStorageMultisampleCoverageNV;
PFNGLDEPTHRANGEDNVPROC glDepthRangedNV;
PFNGLPROGRAMVERTEXLIMITNVPROC glProgramVertexLimitNV;
PFNGLFRAMEBUFFERTEXTUREEXTPROC glFramebufferTextureEXT;
PFNGLFRAMEBUFFERTEXTURELAYEREXTPROC glFramebufferTextureLayerEXT;
PFNGLFRAMEBUFFERTEXTUREFACEEXTPROC glFramebufferTextureFaceEXT;
PFNGLDEBUGMESSAGECALLBACKARBPROC glDebugMessageCallbackARB;
PFNGLGENQUERIESARBPROC glGenQueriesARB;
PFNGLDELETEQUERIESARBPROC glDeleteQueriesARB;
PFNGLISQUERYARBPROC glIsQueryARB;
PFNGLBEGINQUERYARBPROC glBeginQueryARB;
PFNGLENDQUERYARBPROC glEndQueryARB;
PFNGLGETQUERYIVARBPROC glGetQueryivARB;
PFNGLGETQUERYOBJECTIVARBPROC glGetQueryObjectivARB;
PFNGLGETQUERYOBJECTUIVARBPROC glGetQueryObjectuivARB;
PFNGLQUERYCOUNTERPROC glQueryCounter;
PFNGLGETQUERYOBJECTI64VPROC glGetQueryObjecti64v;
PFNGLGETQUERYOBJECTUI64VPROC glGetQueryObjectui64v;
PFNGLTEXIMAGE3DPROC glTexImage3D;
PFNGLCOMPRESSEDTEXIMAGE2DPROC glCompressedTexImage2D;
PFNGLMULTITEXCOORD3FPROC glMultiTexCoord3f;
PFNGLMULTITEXCOORDPOINTEREXTPROC glMultiTexCoordPointerEXT;
PFNGLENABLEVERTEXATTRIBARRAYARBPROC glEnableVertexAttribArrayARB;
PFNGLDISABLEVERTEXATTRIBARRAYARBPROC glDisableVertexAttribArrayARB;
PFNGLVERTEXATTRIBPOINTERARBPROC glVertexAttribPointerARB;
PFNGLGETVERTEXATTRIBIVPROC glGetVertexAttribiv;
PFNGLDRAWBUFFERSARBPROC glDrawBuffersARB;
PFNGLCREATESHADERPROC glCreateShader;
PFNGLSHADERSOURCEPROC glShaderSource;
PFNGLCOMPILESHADERPROC glCompileShader;
PFNGLDELETEPROGRAMPROC glDeleteProgram;
PFNGLGETSHADERIVPROC glGetShaderiv;
PFNGLGETSHADERINFOLOGPROC glGetShaderInfoLog;
PFNGLCREATEPROGRAMPROC glCreateProgram;
PFNGLATTACHSHADERPROC glAttachShader;
PFNGLLINKPROGRAMPROC glLinkProgram;
PFNGLUSEPROGRAMPROC glUseProgram;
PFNGLGETPROGRAMIVPROC glGetProgramiv;
PFNGLGETPROGRAMINFOLOGPROC glGetProgramInfoLog;
PFNGLBINDFRAGDATALOCATIONPROC glBindFragDataLocation;
PFNGLGETUNIFORMLOCATIONPROC glGetUniformLocation;
PFNGLUNIFORM1FPROC glUniform1f;
PFNGLUNIFORM2FPROC glUniform2f;
PFNGLUNIFORM3FPROC glUniform3f;
PFNGLUNIFORM4FPROC glUniform4f;
PFNGLUNIFORM1IPROC glUniform1i;
PFNGLUNIFORM1IVPROC glUniform1iv;
PFNGLUNIFORMMATRIX4FVPROC glUniformMatrix4fv;
PFNGLBINDATTRIBLOCATIONPROC glBindAttribLocation;
PFNGLGETUNIFORMBLOCKINDEXPROC glGetUniformBlockIndex;
PFNGLGETACTIVEUNIFORMBLOCKIVPROC glGetActiveUniformBlockiv;
PFNGLBINDBUFFERBASEPROC glBindBufferBase;
PFNGLGETUNIFORMINDICESPROC glGetUniformIndices;
PFNGLGETACTIVEUNIFORMSIVPROC glGetActiveUniformsiv;
PFNGLUNIFORMBLOCKBINDINGPROC glUniformBlockBinding;
PFNGLGENVERTEXARRAYSPROC glGenVertexArrays;
PFNGLBINDVERTEXARRAYPROC glBindVertexArray;
PFNGLDELETEVERTEXARRAYSPROC glDeleteVertexArrays;

} // namespace gll

namespace {

const char* DriverString(GLenum name)
{
    return reinterpret_cast<const char*>(glGetString(name));
}

const GLLSource driverSource = {DriverString, PlatformGLGetProcAddress};

} // namespace

// Resolves one process-wide pointer under the OpenGL name written in the call. The name is taken
// before the OpenGL header's renaming, the variable after it.
#define GLL_RESOLVE(fn) gll::fn = reinterpret_cast<decltype(gll::fn)>(check_wglGetProcAddress(#fn))

GLLExtensionManager::GLLExtensionManager(const GLLSource* src)
    : source(src ? *src : driverSource), flags(0), state(0)
{
}

void* GLLExtensionManager::check_wglGetProcAddress(const char* name)
{
    void* p = source.GetProcAddress ? source.GetProcAddress(name) : nullptr;
    if (!p) QERROR("wglGetProcAddress(%s) failed", name);
    return p;
}

bool GLLExtensionManager::Has(const char* name)
{
    auto get = [this](GLenum which) -> const char* {
        const char* s = source.GetString ? source.GetString(which) : nullptr;
        return s ? s : "";
    };
    vendor = get(GL_VENDOR);
    renderer = get(GL_RENDERER);
    version = get(GL_VERSION);

    if (!name || !*name || std::strchr(name, ' ')) return false;
    const char* list = source.GetString ? source.GetString(GL_EXTENSIONS) : nullptr;
    if (!list) return false;
    size_t len = std::strlen(name);
    for (const char* p = list; (p = std::strstr(p, name)) != nullptr; p += len) {
        bool starts = p == list || p[-1] == ' ';
        bool ends = p[len] == ' ' || p[len] == '\0';
        if (starts && ends) return true;
    }
    return false;
}

void GLLExtensionManager::CheckExtensions()
{
    if (state & GLLS_CHECKED) return;
    flags = 0;

    if (Has("GL_ARB_multitexture")) {
        flags |= GLL_MULTITEXTURE;
        GLL_RESOLVE(glActiveTextureARB);
        GLL_RESOLVE(glClientActiveTextureARB);
    }
    if (Has("GL_ARB_texture_compression")) flags |= GLL_TEXTURE_COMPRESSION;
    if (Has("GL_ARB_texture_env_add")) flags |= GLL_TEXTURE_ENV_ADD;
    if (Has("GL_ARB_texture_env_combine")) flags |= GLL_TEXTURE_ENV_COMBINE;
    if (Has("GL_ARB_texture_env_dot3")) flags |= GLL_TEXTURE_ENV_DOT3;
    if (Has("GL_EXT_blend_color")) {
        flags |= GLL_BLEND_COLOR;
        GLL_RESOLVE(glBlendColor);
    }
    if (Has("GL_EXT_separate_specular_color")) flags |= GLL_SEPARATE_SPECULAR_COLOR;
    if (Has("GL_EXT_texture_filter_anisotropic")) flags |= GLL_TEXTURE_FILTER_ANISOTROPIC;
    if (Has("GL_EXT_texture_lod_bias")) flags |= GLL_TEXTURE_LOD_BIAS;
    if (Has("GL_NV_fog_distance")) flags |= GLL_FOG_DISTANCE;
    if (Has("GL_EXT_compiled_vertex_array")) {
        GLL_RESOLVE(glLockArraysEXT);
        GLL_RESOLVE(glUnlockArraysEXT);
    }
    GLL_RESOLVE(glBlendFuncSeparate);

    if (Has("GL_ARB_vertex_buffer_object")) {
        GLL_RESOLVE(glBindBufferARB);
        GLL_RESOLVE(glDeleteBuffersARB);
        GLL_RESOLVE(glGenBuffersARB);
        GLL_RESOLVE(glIsBufferARB);
        GLL_RESOLVE(glBufferDataARB);
        GLL_RESOLVE(glBufferSubDataARB);
        GLL_RESOLVE(glGetBufferSubDataARB);
        GLL_RESOLVE(glMapBufferARB);
        GLL_RESOLVE(glUnmapBufferARB);
        GLL_RESOLVE(glGetBufferParameterivARB);
        GLL_RESOLVE(glGetBufferPointervARB);
        // Callers test the bit alone before using buffers, so it promises all eleven.
        if (gll::glBindBufferARB && gll::glDeleteBuffersARB && gll::glGenBuffersARB && gll::glIsBufferARB &&
            gll::glBufferDataARB && gll::glBufferSubDataARB && gll::glGetBufferSubDataARB && gll::glMapBufferARB &&
            gll::glUnmapBufferARB && gll::glGetBufferParameterivARB && gll::glGetBufferPointervARB)
            flags |= GLL_VERTEX_BUFFER_OBJECT;
        else
            QWARNING("QOpenGL: ARB_vertex_buffer_object extension found but not all functions resolved");
    }
    if (Has("GL_EXT_framebuffer_object")) {
        flags |= GLL_FRAMEBUFFER_OBJECT;
        GLL_RESOLVE(glGenFramebuffersEXT);
        GLL_RESOLVE(glBindFramebufferEXT);
        GLL_RESOLVE(glGenRenderbuffersEXT);
        GLL_RESOLVE(glBindRenderbufferEXT);
        GLL_RESOLVE(glRenderbufferStorageEXT);
        GLL_RESOLVE(glFramebufferTexture2DEXT);
        GLL_RESOLVE(glFramebufferRenderbufferEXT);
        GLL_RESOLVE(glCheckFramebufferStatusEXT);
        GLL_RESOLVE(glDeleteFramebuffersEXT);
        GLL_RESOLVE(glDeleteRenderbuffersEXT);
        GLL_RESOLVE(glGenerateMipmapEXT);
    }
    if (Has("GL_ARB_geometry_shader4")) {
        flags |= GLL_GEOMETRY_SHADER4;
        GLL_RESOLVE(glProgramParameteriARB);
    }
    if (Has("GL_EXT_packed_depth_stencil")) flags |= GLL_PACKED_DEPTH_STENCIL;
    if (Has("GL_EXT_framebuffer_multisample")) {
        flags |= GLL_FRAMEBUFFER_MULTISAMPLE;
        GLL_RESOLVE(glRenderbufferStorageMultisampleEXT);
    }
    if (Has("GL_EXT_framebuffer_blit")) {
        flags |= GLL_FRAMEBUFFER_BLIT;
        GLL_RESOLVE(glBlitFramebufferEXT);
    }
    if (Has("GL_NV_framebuffer_multisample_coverage")) {
        flags |= GLL_FRAMEBUFFER_MULTISAMPLE_COVERAGE;
        GLL_RESOLVE(glRenderbufferStorageMultisampleCoverageNV);
        GLL_RESOLVE(glDepthRangedNV);
    }

    GLL_RESOLVE(glProgramVertexLimitNV);
    GLL_RESOLVE(glFramebufferTextureEXT);
    GLL_RESOLVE(glFramebufferTextureLayerEXT);
    GLL_RESOLVE(glFramebufferTextureFaceEXT);
    if (Has("GL_ARB_debug_output")) GLL_RESOLVE(glDebugMessageCallbackARB);

    GLL_RESOLVE(glGenQueriesARB);
    GLL_RESOLVE(glDeleteQueriesARB);
    GLL_RESOLVE(glIsQueryARB);
    GLL_RESOLVE(glBeginQueryARB);
    GLL_RESOLVE(glEndQueryARB);
    GLL_RESOLVE(glGetQueryivARB);
    GLL_RESOLVE(glGetQueryObjectivARB);
    GLL_RESOLVE(glGetQueryObjectuivARB);
    GLL_RESOLVE(glQueryCounter);
    GLL_RESOLVE(glGetQueryObjecti64v);
    GLL_RESOLVE(glGetQueryObjectui64v);
    state |= GLLS_CHECKED;

    GLL_RESOLVE(glTexImage3D);
    GLL_RESOLVE(glCompressedTexImage2D);
    GLL_RESOLVE(glMultiTexCoord3f);
    GLL_RESOLVE(glMultiTexCoordPointerEXT);

    // The version string opens with the major number: "2.1 Mesa ...", "4.5 (Compatibility Profile)".
    if (version.IsNotEmpty() && version.cstr()[0] >= '2') {
        GLL_RESOLVE(glEnableVertexAttribArrayARB);
        GLL_RESOLVE(glDisableVertexAttribArrayARB);
        GLL_RESOLVE(glVertexAttribPointerARB);
        GLL_RESOLVE(glGetVertexAttribiv);
        GLL_RESOLVE(glDrawBuffersARB);
        GLL_RESOLVE(glCreateShader);
        GLL_RESOLVE(glShaderSource);
        GLL_RESOLVE(glCompileShader);
        GLL_RESOLVE(glDeleteProgram);
        GLL_RESOLVE(glGetShaderiv);
        GLL_RESOLVE(glGetShaderInfoLog);
        GLL_RESOLVE(glCreateProgram);
        GLL_RESOLVE(glAttachShader);
        GLL_RESOLVE(glLinkProgram);
        GLL_RESOLVE(glUseProgram);
        GLL_RESOLVE(glGetProgramiv);
        GLL_RESOLVE(glGetProgramInfoLog);
        GLL_RESOLVE(glBindFragDataLocation);
        GLL_RESOLVE(glGetUniformLocation);
        GLL_RESOLVE(glUniform1f);
        GLL_RESOLVE(glUniform2f);
        GLL_RESOLVE(glUniform3f);
        GLL_RESOLVE(glUniform4f);
        GLL_RESOLVE(glUniform1i);
        GLL_RESOLVE(glUniform1iv);
        GLL_RESOLVE(glUniformMatrix4fv);
        GLL_RESOLVE(glBindAttribLocation);
        GLL_RESOLVE(glGetUniformBlockIndex);
        GLL_RESOLVE(glGetActiveUniformBlockiv);
        GLL_RESOLVE(glBindBufferBase);
        GLL_RESOLVE(glGetUniformIndices);
        GLL_RESOLVE(glGetActiveUniformsiv);
        GLL_RESOLVE(glUniformBlockBinding);
        GLL_RESOLVE(glGenVertexArrays);
        GLL_RESOLVE(glBindVertexArray);
        GLL_RESOLVE(glDeleteVertexArrays);
    } else {
        QWARNING("OpenGL version less than 2; no GLSL support");
    }
}

} // namespace tarvik
