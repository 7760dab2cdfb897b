#include "toolkit/qdlgfile.h"
