// Which core the threads of a benchmark run on.
#pragma once

namespace Bench {

/// Where a scheduler puts two threads that talk decides what a wake-up between them costs: some 5 µs on one
/// core, ten times that across cores of a virtual machine. So who measures has one core and all that is
/// measured, the bare figures as well as the installation, has another.
enum class Side { Measuring, Measured };

/// Moves the calling thread, and those that it starts from now on, to its side's core. Does nothing where the
/// process may use one core only. First called by the main thread, before others are started.
void RunOn(Side side);

} // namespace Bench
