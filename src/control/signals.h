// SPDX-License-Identifier: MIT
//
// What signals do to a run.
#pragma once

namespace orvel {

// A signal that stops the process takes away the files that are still open for writing. A closed pipe
// and a limit of the file size become write errors like any other.
void handle_signals();

} // namespace orvel
