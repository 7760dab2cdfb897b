#include "toolkit/qlabel.h"
