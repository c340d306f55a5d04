#include "app/config/ConfigClipboard.h"

#include <QCoreApplication>
#include <QMetaObject>

QStringList ConfigClipboard::typeIdentifiers()
{
    return {toolsConfigType,    toolInputSchemaType, toolOutputSchemaType,
            resourceConfigType, promptConfigType,    promptArgumentType};
}

ConfigClipboard *ConfigClipboard::shared()
{
    static ConfigClipboard *instance = nullptr;
    if (!instance)
        instance = new ConfigClipboard(QCoreApplication::instance());
    return instance;
}

ConfigClipboard::ConfigClipboard(QObject *parent) : QObject(parent) {}

void ConfigClipboard::storeData(const QByteArray &data, const QString &typeIdentifier)
{
    m_providerStore.insert(typeIdentifier, data);
    emit contentsChanged();
}

void ConfigClipboard::loadData(const QString &typeIdentifier, std::function<void(std::optional<QByteArray>)> completion)
{
    // The data are taken now; a later store under the same identifier does not change
    // what this load answers.
    std::optional<QByteArray> data;
    if (auto it = m_providerStore.constFind(typeIdentifier); it != m_providerStore.constEnd())
        data = it.value();
    QMetaObject::invokeMethod(
        this, [completion = std::move(completion), data = std::move(data)] { completion(data); }, Qt::QueuedConnection);
}
