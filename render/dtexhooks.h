// The textures as the toolkit sees them: d3RegisterToolkitHooks fills qtextureHooks (see
// toolkit/qtexhooks.h) with functions over DTexture, so that a window can paint a texture without
// the toolkit knowing the class. d3GetDGlobal calls it when it makes the global state; calling it
// again does no harm.
#pragma once

namespace tarvik {

void d3RegisterToolkitHooks();

} // namespace tarvik
