#include "interrupt.h"

namespace dt {

namespace detail {
InterruptPoll interrupt_poll = nullptr;
}

void SetInterruptPoll(InterruptPoll poll) { detail::interrupt_poll = poll; }

}  // namespace dt
