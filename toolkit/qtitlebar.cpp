#include "toolkit/qtitlebar.h"
