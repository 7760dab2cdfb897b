// GLLExtensionManager: what the OpenGL driver of one context offers, as a bit mask, and the
// process-wide entry points of the extensions the rest of the tree calls.
//
// The entry points live in the namespace tarvik::gll under the names of the OpenGL functions, and
// callers write them so: gll::glActiveTextureARB(GL_TEXTURE1_ARB). The OpenGL header in front
// renames every OpenGL name to epoxy_<name> by macro, so the variable is really
// gll::epoxy_glActiveTextureARB, in declaration and use alike; it never meets the header's own
// dispatch pointer of that name, which lives in the global namespace. The pointers are process-wide,
// not per context: the context whose manager resolved them last has set them, and a null pointer
// means the function is absent.
//
// A manager reads its strings and resolves its functions through a GLLSource, the driver's by
// default, so that its logic runs without a driver. It never makes a context current: the caller
// has made its own current before calling Has or CheckExtensions.
#pragma once

#include <epoxy/gl.h> // first: the names below must be renamed by it

#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

enum GLLFlags : uint32_t {
    GLL_MULTITEXTURE = 0x1,
    GLL_TEXTURE_ENV_ADD = 0x2,
    GLL_TEXTURE_ENV_COMBINE = 0x4,
    GLL_BLEND_COLOR = 0x8,
    GLL_SEPARATE_SPECULAR_COLOR = 0x10,
    GLL_TEXTURE_FILTER_ANISOTROPIC = 0x20,
    GLL_FOG_DISTANCE = 0x40,
    GLL_TEXTURE_ENV_DOT3 = 0x80,
    GLL_VERTEX_BUFFER_OBJECT = 0x100, // only with all eleven entry points resolved
    GLL_TEXTURE_COMPRESSION = 0x200,
    GLL_TEXTURE_LOD_BIAS = 0x400,
    GLL_FRAMEBUFFER_OBJECT = 0x800,
    GLL_FRAMEBUFFER_MULTISAMPLE = 0x1000,
    GLL_FRAMEBUFFER_BLIT = 0x2000,
    GLL_PACKED_DEPTH_STENCIL = 0x4000,
    GLL_FRAMEBUFFER_MULTISAMPLE_COVERAGE = 0x8000,
    GLL_GEOMETRY_SHADER4 = 0x10000,
};

enum GLLState : uint32_t {
    GLLS_CHECKED = 1, // CheckExtensions has run
};

// Where a manager gets its strings and functions from. Either member may be null: a null string,
// a null function.
struct GLLSource {
    const char* (*GetString)(GLenum name); // GL_VENDOR, GL_RENDERER, GL_VERSION, GL_EXTENSIONS
    void* (*GetProcAddress)(const char* name);
};

class GLLExtensionManager {
public:
    explicit GLLExtensionManager(const GLLSource* source = nullptr); // null: the driver; copied
    GLLExtensionManager(const GLLExtensionManager&) = delete;
    GLLExtensionManager& operator=(const GLLExtensionManager&) = delete;

    // Sets 'flags' and resolves the process-wide entry points; once per manager.
    void CheckExtensions();
    // Whether GL_EXTENSIONS lists 'name' as a whole word. Refreshes vendor, renderer and version.
    bool Has(const char* name);
    bool IsSupported(uint32_t mask) const { return (flags & mask) != 0; }

    uint32_t GetFlags() const { return flags; }
    uint32_t GetState() const { return state; }
    const qstring& GetVendor() const { return vendor; }
    const qstring& GetRenderer() const { return renderer; }
    const qstring& GetVersion() const { return version; }

private:
    // The driver's function of that name; reports a null one and returns it all the same.
    void* check_wglGetProcAddress(const char* name);

    GLLSource source;
    uint32_t flags; // GLLFlags
    uint32_t state; // GLLState
    qstring vendor, renderer, version;
};

namespace gll {

// GL_ARB_multitexture
extern PFNGLACTIVETEXTUREARBPROC glActiveTextureARB;
extern PFNGLCLIENTACTIVETEXTUREARBPROC glClientActiveTextureARB;
// GL_EXT_blend_color
extern PFNGLBLENDCOLORPROC glBlendColor;
// GL_EXT_compiled_vertex_array
extern PFNGLLOCKARRAYSEXTPROC glLockArraysEXT;
extern PFNGLUNLOCKARRAYSEXTPROC glUnlockArraysEXT;
// always resolved
extern PFNGLBLENDFUNCSEPARATEPROC glBlendFuncSeparate;
// GL_ARB_vertex_buffer_object
extern PFNGLBINDBUFFERARBPROC glBindBufferARB;
extern PFNGLDELETEBUFFERSARBPROC glDeleteBuffersARB;
extern PFNGLGENBUFFERSARBPROC glGenBuffersARB;
extern PFNGLISBUFFERARBPROC glIsBufferARB;
extern PFNGLBUFFERDATAARBPROC glBufferDataARB;
extern PFNGLBUFFERSUBDATAARBPROC glBufferSubDataARB;
extern PFNGLGETBUFFERSUBDATAARBPROC glGetBufferSubDataARB;
extern PFNGLMAPBUFFERARBPROC glMapBufferARB;
extern PFNGLUNMAPBUFFERARBPROC glUnmapBufferARB;
extern PFNGLGETBUFFERPARAMETERIVARBPROC glGetBufferParameterivARB;
extern PFNGLGETBUFFERPOINTERVARBPROC glGetBufferPointervARB;
// GL_EXT_framebuffer_object
extern PFNGLGENFRAMEBUFFERSEXTPROC glGenFramebuffersEXT;
extern PFNGLBINDFRAMEBUFFEREXTPROC glBindFramebufferEXT;
extern PFNGLGENRENDERBUFFERSEXTPROC glGenRenderbuffersEXT;
extern PFNGLBINDRENDERBUFFEREXTPROC glBindRenderbufferEXT;
extern PFNGLRENDERBUFFERSTORAGEEXTPROC glRenderbufferStorageEXT;
extern PFNGLFRAMEBUFFERTEXTURE2DEXTPROC glFramebufferTexture2DEXT;
extern PFNGLFRAMEBUFFERRENDERBUFFEREXTPROC glFramebufferRenderbufferEXT;
extern PFNGLCHECKFRAMEBUFFERSTATUSEXTPROC glCheckFramebufferStatusEXT;
extern PFNGLDELETEFRAMEBUFFERSEXTPROC glDeleteFramebuffersEXT;
extern PFNGLDELETERENDERBUFFERSEXTPROC glDeleteRenderbuffersEXT;
extern PFNGLGENERATEMIPMAPEXTPROC glGenerateMipmapEXT;
// GL_ARB_geometry_shader4
extern PFNGLPROGRAMPARAMETERIARBPROC glProgramParameteriARB;
// GL_EXT_framebuffer_multisample, GL_EXT_framebuffer_blit, GL_NV_framebuffer_multisample_coverage
extern PFNGLRENDERBUFFERSTORAGEMULTISAMPLEEXTPROC glRenderbufferStorageMultisampleEXT;
extern PFNGLBLITFRAMEBUFFEREXTPROC glBlitFramebufferEXT;
extern PFNGLRENDERBUFFERSTORAGEMULTISAMPLECOVERAGENVPROC glRenderbufferStorageMultisampleCoverageNV;
extern PFNGLDEPTHRANGEDNVPROC glDepthRangedNV;
// always resolved: geometry programs
extern PFNGLPROGRAMVERTEXLIMITNVPROC glProgramVertexLimitNV;
extern PFNGLFRAMEBUFFERTEXTUREEXTPROC glFramebufferTextureEXT;
extern PFNGLFRAMEBUFFERTEXTURELAYEREXTPROC glFramebufferTextureLayerEXT;
extern PFNGLFRAMEBUFFERTEXTUREFACEEXTPROC glFramebufferTextureFaceEXT;
// GL_ARB_debug_output
extern PFNGLDEBUGMESSAGECALLBACKARBPROC glDebugMessageCallbackARB;
// always resolved: queries and timers
extern PFNGLGENQUERIESARBPROC glGenQueriesARB;
extern PFNGLDELETEQUERIESARBPROC glDeleteQueriesARB;
extern PFNGLISQUERYARBPROC glIsQueryARB;
extern PFNGLBEGINQUERYARBPROC glBeginQueryARB;
extern PFNGLENDQUERYARBPROC glEndQueryARB;
extern PFNGLGETQUERYIVARBPROC glGetQueryivARB;
extern PFNGLGETQUERYOBJECTIVARBPROC glGetQueryObjectivARB;
extern PFNGLGETQUERYOBJECTUIVARBPROC glGetQueryObjectuivARB;
extern PFNGLQUERYCOUNTERPROC glQueryCounter;
extern PFNGLGETQUERYOBJECTI64VPROC glGetQueryObjecti64v;
extern PFNGLGETQUERYOBJECTUI64VPROC glGetQueryObjectui64v;
// always resolved: textures
extern PFNGLTEXIMAGE3DPROC glTexImage3D;
extern PFNGLCOMPRESSEDTEXIMAGE2DPROC glCompressedTexImage2D;
extern PFNGLMULTITEXCOORD3FPROC glMultiTexCoord3f;
extern PFNGLMULTITEXCOORDPOINTEREXTPROC glMultiTexCoordPointerEXT;
// the shading language, with a version of 2 or above
extern PFNGLENABLEVERTEXATTRIBARRAYARBPROC glEnableVertexAttribArrayARB;
extern PFNGLDISABLEVERTEXATTRIBARRAYARBPROC glDisableVertexAttribArrayARB;
extern PFNGLVERTEXATTRIBPOINTERARBPROC glVertexAttribPointerARB;
extern PFNGLGETVERTEXATTRIBIVPROC glGetVertexAttribiv;
extern PFNGLDRAWBUFFERSARBPROC glDrawBuffersARB;
extern PFNGLCREATESHADERPROC glCreateShader;
extern PFNGLSHADERSOURCEPROC glShaderSource;
extern PFNGLCOMPILESHADERPROC glCompileShader;
extern PFNGLDELETEPROGRAMPROC glDeleteProgram;
extern PFNGLGETSHADERIVPROC glGetShaderiv;
extern PFNGLGETSHADERINFOLOGPROC glGetShaderInfoLog;
extern PFNGLCREATEPROGRAMPROC glCreateProgram;
extern PFNGLATTACHSHADERPROC glAttachShader;
extern PFNGLLINKPROGRAMPROC glLinkProgram;
extern PFNGLUSEPROGRAMPROC glUseProgram;
extern PFNGLGETPROGRAMIVPROC glGetProgramiv;
extern PFNGLGETPROGRAMINFOLOGPROC glGetProgramInfoLog;
extern PFNGLBINDFRAGDATALOCATIONPROC glBindFragDataLocation;
extern PFNGLGETUNIFORMLOCATIONPROC glGetUniformLocation;
extern PFNGLUNIFORM1FPROC glUniform1f;
extern PFNGLUNIFORM2FPROC glUniform2f;
extern PFNGLUNIFORM3FPROC glUniform3f;
extern PFNGLUNIFORM4FPROC glUniform4f;
extern PFNGLUNIFORM1IPROC glUniform1i;
extern PFNGLUNIFORM1IVPROC glUniform1iv;
extern PFNGLUNIFORMMATRIX4FVPROC glUniformMatrix4fv;
extern PFNGLBINDATTRIBLOCATIONPROC glBindAttribLocation;
extern PFNGLGETUNIFORMBLOCKINDEXPROC glGetUniformBlockIndex;
extern PFNGLGETACTIVEUNIFORMBLOCKIVPROC glGetActiveUniformBlockiv;
extern PFNGLBINDBUFFERBASEPROC glBindBufferBase;
extern PFNGLGETUNIFORMINDICESPROC glGetUniformIndices;
extern PFNGLGETACTIVEUNIFORMSIVPROC glGetActiveUniformsiv;
extern PFNGLUNIFORMBLOCKBINDINGPROC glUniformBlockBinding;
extern PFNGLGENVERTEXARRAYSPROC glGenVertexArrays;
extern PFNGLBINDVERTEXARRAYPROC glBindVertexArray;
extern PFNGLDELETEVERTEXARRAYSPROC glDeleteVertexArrays;

} // namespace gll

} // namespace tarvik
