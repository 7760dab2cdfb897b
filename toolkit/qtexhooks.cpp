#include "toolkit/qtexhooks.h"

namespace tarvik {

const QTextureHooks* qtextureHooks = nullptr;

} // namespace tarvik
