// Keeps the support library linkable while its other files are headers.
#include "support/ManualClock.h"
