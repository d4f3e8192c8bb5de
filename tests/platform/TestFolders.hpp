#pragma once

// The old names of two shared helpers, kept only until every suite includes
// support/TempFolder.hpp and support/ScopedEnv.hpp itself.
#include "support/ScopedEnv.hpp"
#include "support/TempFolder.hpp"

namespace vantelo_sounds::testing {

using TempFolder = test::TempFolder;
using ScopedEnv = test::ScopedEnv;

} // namespace vantelo_sounds::testing
