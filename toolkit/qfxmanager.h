// The effects manager and its gel list, as the application object reaches them.
#pragma once

#include "toolkit/qgel.h"
