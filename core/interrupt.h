// Cancellation of long loops in the core.
//
// Every loop of the core over a document, a file or a list of terms calls
// PollInterrupts() as it goes.  The core itself knows nothing of statement
// cancels or timeouts: the layer that embeds it installs a poll function
// (the server layer's raises the server's cancel as a dt::Error), and the
// error unwinds the core like any other.  Without one, polling does nothing.
#pragma once

namespace dt {

using InterruptPoll = void (*)();

// Installs the poll function (nullptr: none).
void SetInterruptPoll(InterruptPoll poll);

namespace detail {
extern InterruptPoll interrupt_poll;
}

// Calls the poll function if one is installed; it may throw dt::Error.
inline void PollInterrupts() {
    if (detail::interrupt_poll) detail::interrupt_poll();
}

}  // namespace dt
