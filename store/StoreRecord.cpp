#include "store/StoreRecord.h"

#include "store/StoreContext.h"

StoreRecord::StoreRecord(StoreEntity entity, StoreContext *context, qint64 key, State state)
    : m_entity(entity), m_context(context), m_key(key), m_state(state)
{}

StoreRecord::~StoreRecord() = default;

StoreContext *StoreRecord::context() const { return m_state == State::Detached ? nullptr : m_context; }

void StoreRecord::willChange()
{
    if (m_state != State::Detached)
        m_context->recordWillChange(this);
}

void StoreRecord::didChange()
{
    if (m_state != State::Detached)
        m_context->recordDidChange();
}

void StoreRecord::ensureLoaded(StoreEntity entity) const
{
    // A table that cannot be read leaves the list as it is; the next fetch reports why.
    if (m_state != State::Detached)
        (void)m_context->ensureLoaded(entity);
}

namespace {
// An empty QString must not turn into NULL on its way to SQLite.
QString nonNull(const QString &text) { return text.isNull() ? QStringLiteral("") : text; }
}  // namespace

QVariant StoreRecord::toColumn(const std::optional<QString> &value)
{
    return value ? QVariant(nonNull(*value)) : QVariant(QMetaType::fromType<QString>());
}

QVariant StoreRecord::toColumn(const std::optional<QUuid> &value)
{
    return value ? QVariant(value->toString(QUuid::WithoutBraces)) : QVariant(QMetaType::fromType<QString>());
}

QVariant StoreRecord::toColumn(const std::optional<QUrl> &value)
{
    return value ? QVariant(nonNull(value->toString(QUrl::FullyEncoded))) : QVariant(QMetaType::fromType<QString>());
}

QVariant StoreRecord::toColumn(const std::optional<double> &value)
{
    return value ? QVariant(*value) : QVariant(QMetaType::fromType<double>());
}

QVariant StoreRecord::toColumn(const std::optional<QDateTime> &value)
{
    return value ? QVariant(value->toUTC().toString(Qt::ISODateWithMs)) : QVariant(QMetaType::fromType<QString>());
}

std::optional<QString> StoreRecord::textColumn(const QVariant &value)
{
    if (value.isNull())
        return std::nullopt;
    return nonNull(value.toString());
}

std::optional<QUuid> StoreRecord::uuidColumn(const QVariant &value)
{
    if (value.isNull())
        return std::nullopt;
    const QUuid uuid = QUuid::fromString(value.toString());
    if (uuid.isNull())
        return std::nullopt;
    return uuid;
}

std::optional<QUrl> StoreRecord::urlColumn(const QVariant &value)
{
    if (value.isNull())
        return std::nullopt;
    const QUrl url(value.toString());
    if (!url.isValid())
        return std::nullopt;
    return url;
}

std::optional<double> StoreRecord::doubleColumn(const QVariant &value)
{
    if (value.isNull())
        return std::nullopt;
    return value.toDouble();
}

std::optional<QDateTime> StoreRecord::dateColumn(const QVariant &value)
{
    if (value.isNull())
        return std::nullopt;
    const QDateTime date = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date;
}
