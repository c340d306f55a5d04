#include "chat/clients/ChatClientError.h"

ChatClientError::ChatClientError(Kind kind, QString description, int status)
    : std::runtime_error(description.toStdString()), m_kind(kind), m_description(std::move(description)),
      m_status(status)
{
}

ChatClientError ChatClientError::badURL()
{
    return ChatClientError(Kind::badURL, QStringLiteral("unsupported URL"));
}
