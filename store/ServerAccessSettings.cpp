#include "store/ServerAccessSettings.h"

#include "base/UserDefaults.h"

#include <QRandomGenerator>
#include <QUrl>

namespace {

QString normalisedOrigin(QString origin)
{
    origin = origin.trimmed();
    while (origin.endsWith(QLatin1Char('/')))
        origin.chop(1);
    return origin;
}

}  // namespace

QStringList ServerAccessSettings::allowedOrigins()
{
    return UserDefaults::standard()->value(allowedOriginsKey).toStringList();
}

void ServerAccessSettings::setAllowedOrigins(const QStringList &origins)
{
    QStringList kept;
    for (const QString &origin : origins) {
        const QString clean = normalisedOrigin(origin);
        if (!clean.isEmpty() && !kept.contains(clean, Qt::CaseInsensitive))
            kept.append(clean);
    }
    UserDefaults::standard()->setValue(allowedOriginsKey, kept);
}

std::optional<QString> ServerAccessSettings::originProblem(const QString &text)
{
    const QString origin = normalisedOrigin(text);
    if (origin == QLatin1String("*"))
        return std::nullopt;
    const QUrl url(origin, QUrl::StrictMode);
    if (!url.isValid() || (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https")))
        return QStringLiteral("%1 is not an origin: write it as a browser does, like https://app.example:3000").arg(text);
    if (url.host().isEmpty() || !url.path().isEmpty() || url.hasQuery() || url.hasFragment() || !url.userInfo().isEmpty())
        return QStringLiteral("%1 is not an origin: give only the scheme, the host and the port").arg(text);
    return std::nullopt;
}

QString ServerAccessSettings::token()
{
    QString stored = UserDefaults::standard()->value(tokenKey).toString();
    if (stored.isEmpty())
        stored = renewToken();
    return stored;
}

QString ServerAccessSettings::renewToken()
{
    quint32 words[8];
    QRandomGenerator::system()->fillRange(words);
    const QByteArray bytes(reinterpret_cast<const char *>(words), sizeof words);
    const QString made = QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
    UserDefaults::standard()->setValue(tokenKey, made);
    return made;
}

bool ServerAccessSettings::requireToken()
{
    return UserDefaults::standard()->value(requireTokenKey, true).toBool();
}

void ServerAccessSettings::setRequireToken(bool value)
{
    UserDefaults::standard()->setValue(requireTokenKey, value);
}

bool ServerAccessSettings::tokenOnLoopback()
{
    return UserDefaults::standard()->value(tokenOnLoopbackKey, true).toBool();
}

void ServerAccessSettings::setTokenOnLoopback(bool value)
{
    UserDefaults::standard()->setValue(tokenOnLoopbackKey, value);
}

bool ServerAccessSettings::tokenRequired(bool listenAtAll, std::optional<bool> override)
{
    if (override)
        return *override;
    return listenAtAll ? requireToken() : tokenOnLoopback();
}

bool ServerAccessSettings::keepAlive()
{
    return UserDefaults::standard()->value(keepAliveKey, false).toBool();
}

void ServerAccessSettings::setKeepAlive(bool value)
{
    UserDefaults::standard()->setValue(keepAliveKey, value);
}

QVariantMap ServerAccessSettings::policy(bool listenAtAll, const QStringList &extraOrigins, std::optional<bool> tokenOverride,
                                         std::optional<bool> keepAliveOverride)
{
    const auto settings = UserDefaults::standard();
    QStringList origins = allowedOrigins();
    for (const QString &origin : extraOrigins)
        origins.append(normalisedOrigin(origin));
    bool ok = false;
    double timeout = settings->value(receiveTimeoutKey).toDouble(&ok);
    if (!ok)
        timeout = defaultReceiveTimeout;
    qint64 maxBody = settings->value(maxBodyBytesKey).toLongLong(&ok);
    if (!ok || maxBody <= 0)
        maxBody = defaultMaxBodyBytes;
    qint64 maxBuffered = settings->value(maxBufferedBytesKey).toLongLong(&ok);
    if (!ok || maxBuffered <= 0)
        maxBuffered = defaultMaxBufferedBytes;
    double idle = settings->value(idleTimeoutKey).toDouble(&ok);
    if (!ok || idle <= 0)
        idle = 5;
    qint64 perConnection = settings->value(maxRequestsPerConnectionKey).toLongLong(&ok);
    if (!ok || perConnection <= 0)
        perConnection = 1000;
    double sessionIdle = settings->value(sessionIdleTimeoutKey).toDouble(&ok);
    if (!ok || sessionIdle < 0)
        sessionIdle = defaultSessionIdleTimeout;
    return {{QStringLiteral("allowedOrigins"), origins},
            {QStringLiteral("keepAlive"), keepAliveOverride.value_or(keepAlive())},
            {QStringLiteral("idleTimeout"), idle},
            {QStringLiteral("maxRequestsPerConnection"), perConnection},
            {QStringLiteral("sessionIdleTimeout"), sessionIdle},
            {QStringLiteral("bearerToken"), tokenRequired(listenAtAll, tokenOverride) ? token() : QString()},
            {QStringLiteral("receiveTimeout"), timeout},
            {QStringLiteral("maxConnections"), std::max<qint64>(0, settings->value(maxConnectionsKey).toLongLong())},
            {QStringLiteral("maxBodyBytes"), maxBody},
            {QStringLiteral("maxConnectionsPerPeer"), std::max<qint64>(0, settings->value(maxConnectionsPerPeerKey).toLongLong())},
            {QStringLiteral("maxBufferedBytes"), maxBuffered}};
}
