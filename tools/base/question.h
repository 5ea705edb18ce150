#pragma once

#include <string_view>

/** Asking whoever sits at the terminal. */
namespace KELP::Tool {

/** Whether somebody is there to be asked: the standard input is a terminal. */
[[nodiscard]] bool canAsk();

/** Asks "TEXT [y/N] " on the standard error when that is a terminal, otherwise on the terminal of
 *  the process. Only when canAsk(). Throws a Failure of usage when there is neither, and
 *  Interrupted. */
[[nodiscard]] bool confirmed(std::string_view text);

}  // namespace KELP::Tool
