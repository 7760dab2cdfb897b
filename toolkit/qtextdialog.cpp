#include "toolkit/qtextdialog.h"
