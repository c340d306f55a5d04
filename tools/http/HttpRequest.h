#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

// A request made by HttpClient::buildRequest and sent by HttpClient::executeRequest.
class HttpRequest
{
public:
    QString method = QStringLiteral("GET");
    QUrl url;
    QByteArray body;
    // Seconds the transfer may go without any data moving before it is given up.
    double timeoutInterval = 30.0;

    // Header fields in the order first set. Names compare without regard to case, as in HTTP.
    const QList<QPair<QString, QString>> &allHeaderFields() const { return m_headers; }
    bool hasHeader(const QString &field) const;
    // The field's value; a null string when it is not set.
    QString value(const QString &field) const;
    // Sets or replaces the field's value.
    void setValue(const QString &value, const QString &field);

private:
    QList<QPair<QString, QString>> m_headers;
};
