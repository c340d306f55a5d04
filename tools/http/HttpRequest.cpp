#include "tools/http/HttpRequest.h"

bool HttpRequest::hasHeader(const QString &field) const
{
    for (const auto &header : m_headers)
        if (header.first.compare(field, Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

QString HttpRequest::value(const QString &field) const
{
    for (const auto &header : m_headers)
        if (header.first.compare(field, Qt::CaseInsensitive) == 0)
            return header.second;
    return {};
}

void HttpRequest::setValue(const QString &value, const QString &field)
{
    for (auto &header : m_headers) {
        if (header.first.compare(field, Qt::CaseInsensitive) == 0) {
            header.second = value;
            return;
        }
    }
    m_headers.append({field, value});
}
