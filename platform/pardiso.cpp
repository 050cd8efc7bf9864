// The sparse direct solver phases on UMFPACK: see pardiso.h.
#include "platform/pardiso.h"
