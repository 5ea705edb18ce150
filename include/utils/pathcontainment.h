#pragma once

#include <os/export.h>

#include <string>

namespace KELP::Utils {

/**
 * Decides whether the file @p path lies inside the directory @p requiredDir, after the file's
 * parent directory and the required directory have been resolved (symbolic links and ".."
 * included). The file itself need not exist and is not resolved.
 *
 * This is the one guard that keeps names from leaving the directory they belong to.
 *
 * @param path            the file's path. One trailing separator is dropped.
 * @param requiredDir     the directory that must contain it.
 * @param requireExisting true: every directory named must exist; false: the end of either path may
 *                        be missing.
 * @param allowNested     true: at any depth below @p requiredDir; false: directly in it.
 * @return true when contained; false for a path that is empty, is the root directory, or ends in
 *         "." or "..", when it lies elsewhere, and when resolving fails. A failure to resolve is
 *         logged at error priority: "Error %s while attempting to resolve path: %s" with the
 *         system's text and the file's parent directory, or "Error %s while attempting to resolve
 *         required path: %s" with @p requiredDir. Resolving does not count as failed, though it
 *         would fail, where @p path is by its text below @p requiredDir, which is absolute and can
 *         be looked up, and no link is in between: with links that come to a path longer than
 *         PATH_MAX, or lead to a removed directory, as /proc/self/cwd can.
 *
 * May be called from any thread. Throws only for want of memory.
 */
KELP_EXPORT bool VerifyFilePathIsWithinRequiredDirectory(const std::string& path,
                                                         const std::string& requiredDir,
                                                         bool requireExisting, bool allowNested);

}  // namespace KELP::Utils
