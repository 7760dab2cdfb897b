#include "toolkit/qbutton.h"
