#include "foundation/qapphooks.h"

namespace tarvik {

const QAppHooks* qappHooks = nullptr;

} // namespace tarvik
