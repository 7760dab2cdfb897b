#include "toolkit/qdialog.h"
