#include "chat/session/ChatStatus.h"

void ChatStatus::setText(const QString &text)
{
    m_text = text;
    emit changed();
}

void ChatStatus::setBusy(bool busy)
{
    m_busy = busy;
    emit changed();
}
