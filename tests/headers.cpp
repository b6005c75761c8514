// Stands for the headers that all tests share, so that they are compiled once: see CMakeLists.txt.
#include "tests/support.h"
