#include "tools/http/TransferStopCheck.h"

namespace {
thread_local TransferStopCheck *t_installed = nullptr;
}

TransferStopCheck::TransferStopCheck(Check check) : m_check(std::move(check)), m_previous(t_installed)
{
    t_installed = this;
}

TransferStopCheck::~TransferStopCheck()
{
    t_installed = m_previous;
}

std::optional<QString> TransferStopCheck::reasonToStop()
{
    if (!t_installed || !t_installed->m_check)
        return std::nullopt;
    return t_installed->m_check();
}
