// Which pieces of a drive could not be read, each with the library's words for it.
#pragma once

#include "output/messages.h"

#include <torvane.h>

#include <vector>

namespace tool {

// The result fields of a record name the pieces that failed; each is asked for once more, alone, because
// the library keeps only its last words. With `essential_only` the others are left in peace.
std::vector<Failure> explain(const DriveRecord &record, bool essential_only);

} // namespace tool
