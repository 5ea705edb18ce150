#pragma once

/**
 * @file
 * What the shared library exports. Everything that is not marked is hidden.
 */

/** Exports a function, or all of a class. */
#define KELP_EXPORT __attribute__((visibility("default")))

/** Keeps a member of an exported class hidden, for the library's own use. */
#define KELP_HIDDEN __attribute__((visibility("hidden")))
