#pragma once

namespace KELP::Test {

/**
 * From now on a `flock`, or an attempt to open a file for writing or to create one, ends the
 * calling thread's process by SIGSYS; so it is for the programs that the thread starts. Cannot be
 * undone, so to be called on a thread of its own.
 *
 * @return false when the system does not allow it.
 */
[[nodiscard]] bool forbidLocksAndWrites();

}  // namespace KELP::Test
