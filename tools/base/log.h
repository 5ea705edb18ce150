#pragma once

#include <string>

/** What becomes of the lines that the library logs in this process. */
namespace KELP::Tool {

/** From now on lines go to the standard error, or nowhere unless @p verbose. */
void redirectLog(bool verbose);

/** The last line at error priority, escaped: why the library refused when it returned nothing. */
[[nodiscard]] std::string lastLoggedError();

}  // namespace KELP::Tool
