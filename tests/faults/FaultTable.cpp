// SPDX-License-Identifier: MIT
#include "faults/FaultTest.h"

TEST_P(FaultTable, ShowsWhatItsRowSays) { PlayRow(); }
