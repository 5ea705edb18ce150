#pragma once

#include "base/failure.h"
#include "verbs/verb.h"

#include <CLI/App.hpp>
#include <memory>

namespace KELP::Tool {

/** The whole command line. @param context filled when it is parsed; must outlive the result. */
[[nodiscard]] std::unique_ptr<CLI::App> makeProgram(Context& context);

/** Parses the arguments and does what they say. */
[[nodiscard]] ExitStatus runProgram(int argc, const char* const* argv);

}  // namespace KELP::Tool
