#pragma once

#include <QString>

#include <functional>
#include <optional>

// What may end the transfers of one thread before their end. The code that runs a call (a
// script's watchdog) installs a check for the call's life; every transfer on that thread asks
// it while data moves and while it waits, and ends with the reason it gives.
//
// The check is asked on the transferring thread only, so it needs no lock of its own.
class TransferStopCheck {
public:
    // The reason to stop now, or nothing to go on.
    using Check = std::function<std::optional<QString>()>;

    // Installs the check on the calling thread until the object ends; the one it replaces
    // comes back then.
    explicit TransferStopCheck(Check check);
    ~TransferStopCheck();
    TransferStopCheck(const TransferStopCheck &) = delete;
    TransferStopCheck &operator=(const TransferStopCheck &) = delete;

    // The answer of the calling thread's check; nothing when none is installed.
    static std::optional<QString> reasonToStop();

private:
    Check m_check;
    TransferStopCheck *m_previous;
};
