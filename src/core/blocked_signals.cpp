#include "core/blocked_signals.hpp"

namespace xpon::core {

BlockedSignals::BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
}

BlockedSignals::BlockedSignals(std::initializer_list<int> signals) {
    sigset_t some;
    sigemptyset(&some);
    for (int const signal : signals) {
        sigaddset(&some, signal);
    }
    pthread_sigmask(SIG_BLOCK, &some, &before);
}

BlockedSignals::~BlockedSignals() {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace xpon::core
