#pragma once

#include "base/Result.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <optional>

// Reads the members of one JSON object of a configuration file with strict types: a
// required key that is missing, or any value of the wrong JSON type, is an error, and the
// first error met is kept with the path of the member, so that a whole file fails with a
// message that says where.
class JSONFieldReader {
public:
    JSONFieldReader(const QJsonObject &object, QString path = QString());

    // A record that fails to decode fails with this domain and code, the description saying
    // why and where.
    static QString errorDomain() { return QStringLiteral("ConfigurationRecord"); }
    static constexpr int decodingFailed = 1;

    // The JSON object a configuration file holds.
    static Result<QJsonObject> parseObject(const QByteArray &data);

    std::optional<QString> string(const QString &key, bool required);
    std::optional<bool> boolean(const QString &key, bool required);
    std::optional<double> number(const QString &key, bool required);
    std::optional<QJsonObject> object(const QString &key, bool required);
    std::optional<QJsonArray> array(const QString &key, bool required);
    std::optional<QStringList> stringArray(const QString &key, bool required);

    // Records an error of a nested reader (or of the caller) unless one is already kept.
    void fail(const QString &message);
    void adopt(const JSONFieldReader &nested);

    bool ok() const { return !m_error.has_value(); }
    QString error() const { return m_error.value_or(QString()); }
    // The kept error as a decoding failure (only when !ok()).
    AppError failure() const { return AppError{errorDomain(), decodingFailed, error()}; }
    // The dotted path of a member, for nested readers and messages.
    QString pathOf(const QString &key) const;

private:
    // The value under key when present; a missing required key records the error.
    std::optional<QJsonValue> member(const QString &key, bool required);
    void wrongType(const QString &key, const char *expected);

    QJsonObject m_object;
    QString m_path;
    std::optional<QString> m_error;
};
