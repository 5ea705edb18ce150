#pragma once

namespace KELP::Bench {

/** Whether an operation, as far as the one of the library does, waits until a power cut cannot take
 *  back what it did. */
enum class Durable { No, Yes };

}  // namespace KELP::Bench
