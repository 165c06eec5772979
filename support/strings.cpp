#include "support/strings.h"
