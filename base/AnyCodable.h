#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVariant>
#include <optional>

// One value of any JSON kind, carried through tool results and configuration records.
class AnyCodable {
public:
    AnyCodable() = default;  // null
    AnyCodable(std::nullptr_t) {}
    AnyCodable(bool v) : m_value(v) {}
    AnyCodable(int v) : m_value(v) {}
    AnyCodable(qint64 v) : m_value(v) {}
    AnyCodable(double v) : m_value(v) {}
    AnyCodable(const QString &v) : m_value(v) {}
    AnyCodable(const char *v) : m_value(QString::fromUtf8(v)) {}
    AnyCodable(const QJsonArray &v) : m_value(v) {}
    AnyCodable(const QJsonObject &v) : m_value(v) {}

    // Reads a decoded JSON value: null, bool, integer, double, string, array or map.
    // Anything else (an undefined value) fails with "Unsupported JSON value".
    static std::optional<AnyCodable> decode(const QJsonValue &value, QString *error = nullptr);
    // Takes a platform value (bool, integer, floating point, string, list, map, null).
    // A kind that has no JSON form fails with "Unsupported JSON value: " and its description.
    static std::optional<AnyCodable> fromVariant(const QVariant &value, QString *error = nullptr);

    const QJsonValue &toJson() const { return m_value; }
    QVariant toVariant() const { return m_value.toVariant(); }

    bool isNull() const { return m_value.isNull(); }
    bool operator==(const AnyCodable &other) const { return m_value == other.m_value; }

private:
    explicit AnyCodable(const QJsonValue &v, int) : m_value(v) {}
    static std::optional<QJsonValue> variantToJson(const QVariant &value, QString *error);

    QJsonValue m_value;
};
