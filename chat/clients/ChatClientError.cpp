#include "chat/clients/ChatClientError.h"

namespace {

constexpr int kFirstStatus = 100;

} // namespace

QString ChatClientError::domain()
{
    return QStringLiteral("chat");
}

AppError ChatClientError::make(Kind kind, QString description)
{
    return AppError{domain(), int(kind), std::move(description)};
}

AppError ChatClientError::httpFailure(int status, QString description)
{
    // A status outside HTTP's range still reads as an HTTP error.
    return AppError{domain(), status >= kFirstStatus ? status : int(Kind::http), std::move(description)};
}

AppError ChatClientError::badURL()
{
    return make(Kind::badURL, QStringLiteral("unsupported URL"));
}

ChatClientError::Kind ChatClientError::kindOf(const AppError &error)
{
    if (error.domain != domain())
        return Kind::transport;
    if (error.code >= kFirstStatus)
        return Kind::http;
    if (error.code < int(Kind::badURL) || error.code > int(Kind::http))
        return Kind::transport;
    return Kind(error.code);
}

int ChatClientError::httpStatus(const AppError &error)
{
    return error.domain == domain() && error.code >= kFirstStatus ? error.code : 0;
}
