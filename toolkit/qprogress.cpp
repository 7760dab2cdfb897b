#include "toolkit/qprogress.h"
