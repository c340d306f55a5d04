#include "app/config/ResourceConfigController.h"

#include "store/ResourceConfig.h"
#include "store/ResourceConfigSnapshot.h"
#include "store/ResourceQueryService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QMimeDatabase>
#include <QUrl>

const QStringList ResourceConfigController::audienceChoices = {QStringLiteral("user"), QStringLiteral("assistant"),
                                                               QStringLiteral("tool_call"), QStringLiteral("external")};

ResourceConfigController::ResourceConfigController(StoreContext *context, ConfigClipboard *clipboard, QObject *parent)
    : StoreBackedController(context, clipboard, parent)
{
    addPasteHandler<ResourceConfigSnapshot>(ConfigClipboard::resourceConfigType, [this](const ResourceConfigSnapshot &s) {
        auto *resource = this->context()->insert<ResourceConfig>();
        resource->setId(QUuid::createUuid());
        resource->setName(s.name + QStringLiteral(" Copy"));
        resource->setType(s.type);
        resource->setMimeType(s.mimeType);
        const QUrl uri(s.uriString, QUrl::StrictMode);
        resource->setUri(uri.isValid() && !s.uriString.isEmpty() ? std::optional(uri) : std::nullopt);
        resource->setResourceDescription(s.resourceDescription);
        resource->setContextTags(s.contextTags);
        resource->setRelatedResources(s.relatedResources);
        resource->setAnnAudience(s.annAudience);
        resource->setAnnPriority(s.annPriority);
        appendRecord(resource);
        setSelectedRecord(resource);
        updateUnsaved(true);
        setFocus(resourceDetailView);
        printConsole(QStringLiteral("[ResourceConfigController] Pasted resource '") + s.name + QStringLiteral(" Copy'."));
    });
}

QList<ResourceConfig *> ResourceConfigController::resourceConfigs() const
{
    return recordsAs<ResourceConfig>();
}

ResourceConfig *ResourceConfigController::selectedResourceConfig() const
{
    return selectedAs<ResourceConfig>();
}

ResourceConfig *ResourceConfigController::resourceToDelete() const
{
    return static_cast<ResourceConfig *>(recordToDelete());
}

FetchRequest ResourceConfigController::listRequest() const
{
    return ResourceQueryService::resourcesRequest();
}

StoreRecord *ResourceConfigController::createRecord()
{
    return ResourceQueryService::createResourceConfig(context());
}

void ResourceConfigController::deleteTapped()
{
    // The focus does not matter here.
    if (StoreRecord *selected = selectedRecord())
        requestDelete(selected);
}

bool ResourceConfigController::canDelete() const
{
    return selectedRecord() && !isAdding();
}

bool ResourceConfigController::canDeleteFromList() const
{
    return canDelete() && focusedField() == resourceListView;
}

bool ResourceConfigController::canCopy() const
{
    return selectedRecord() != nullptr;
}

bool ResourceConfigController::canPaste() const
{
    return clipboardHasPasteable();
}

void ResourceConfigController::copySelectedItem()
{
    ResourceConfig *resource = selectedResourceConfig();
    if (!resource)
        return;
    const ResourceConfigSnapshot snapshot = ResourceConfigSnapshot::fromRecord(*resource);
    if (copyToClipboard(snapshot, ConfigClipboard::resourceConfigType))
        printConsole(QStringLiteral("[ResourceConfigController] Copied resource '") + snapshot.name + QStringLiteral("'."));
}

void ResourceConfigController::pasteFoundNothing()
{
    printConsole(QStringLiteral("[ResourceConfigController] pasteItem: no ResourceConfigSnapshot on clipboard."));
}

template <class Value, class Setter>
void ResourceConfigController::writeIfDifferent(const std::optional<Value> &stored, const Value &value, Setter setter)
{
    if (stored.value_or(Value()) == value && stored.has_value())
        return;
    if (!stored.has_value() && value == Value())
        return;
    setter(value);
}

void ResourceConfigController::setName(const QString &text)
{
    if (ResourceConfig *r = selectedResourceConfig())
        writeIfDifferent(r->name(), text, [r](const QString &v) { r->setName(v); });
}

void ResourceConfigController::setResourceDescription(const QString &text)
{
    if (ResourceConfig *r = selectedResourceConfig())
        writeIfDifferent(r->resourceDescription(), text, [r](const QString &v) { r->setResourceDescription(v); });
}

void ResourceConfigController::setType(const QString &text)
{
    if (ResourceConfig *r = selectedResourceConfig())
        writeIfDifferent(r->type(), text, [r](const QString &v) { r->setType(v); });
}

void ResourceConfigController::setMimeType(const QString &text)
{
    if (ResourceConfig *r = selectedResourceConfig())
        writeIfDifferent(r->mimeType(), text, [r](const QString &v) { r->setMimeType(v); });
}

void ResourceConfigController::setValuesText(const QString &text)
{
    ResourceConfig *r = selectedResourceConfig();
    if (!r)
        return;
    const std::optional<QString> values = storedValues(text);
    if (r->completionValues() != values)
        r->setCompletionValues(values);
}

std::optional<QString> ResourceConfigController::storedValues(const QString &text)
{
    QJsonObject object;
    for (const QString &part : text.split(QLatin1Char(';'))) {
        const qsizetype colon = part.indexOf(QLatin1Char(':'));
        const QString name = part.left(colon).trimmed();
        if (colon < 0 || name.isEmpty())
            continue;
        QJsonArray values;
        for (const QString &value : part.mid(colon + 1).split(QLatin1Char(',')))
            if (!value.trimmed().isEmpty())
                values.append(value.trimmed());
        object.insert(name, values);
    }
    if (object.isEmpty())
        return std::nullopt;
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QString ResourceConfigController::valuesText(const ResourceConfig *resource)
{
    const QJsonObject object = QJsonDocument::fromJson(resource->completionValues().value_or(QString()).toUtf8()).object();
    QStringList parts;
    for (auto it = object.begin(); it != object.end(); ++it) {
        QStringList values;
        for (const QJsonValue &value : it.value().toArray())
            values.append(value.toString());
        parts.append(it.key() + QStringLiteral(": ") + values.join(QStringLiteral(", ")));
    }
    return parts.join(QStringLiteral("; "));
}

void ResourceConfigController::setAudience(const QString &word)
{
    if (ResourceConfig *r = selectedResourceConfig())
        writeIfDifferent(r->annAudience(), word, [r](const QString &v) { r->setAnnAudience(v); });
}

QString ResourceConfigController::uriText(const ResourceConfig *resource)
{
    return resource && resource->uri() ? resource->uri()->toString() : QString();
}

void ResourceConfigController::setUriText(const QString &text)
{
    ResourceConfig *r = selectedResourceConfig();
    if (!r || text == uriText(r))
        return;
    const QUrl url(text, QUrl::StrictMode);
    r->setUri(url.isValid() && !text.isEmpty() ? std::optional(url) : std::nullopt);
}

QString ResourceConfigController::priorityText(const ResourceConfig *resource)
{
    return resource && resource->annPriority() ? QLocale::c().toString(*resource->annPriority(), 'g', 15) : QString();
}

void ResourceConfigController::setPriorityText(const QString &text)
{
    ResourceConfig *r = selectedResourceConfig();
    if (!r)
        return;
    if (text.trimmed().isEmpty()) {
        if (r->annPriority())
            r->setAnnPriority(std::nullopt);
        return;
    }
    bool ok = false;
    const double value = QLocale::c().toDouble(text.trimmed(), &ok);
    if (ok && r->annPriority() != value)
        r->setAnnPriority(value);
}

QStringList ResourceConfigController::readTags(const QString &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (document.isArray()) {
        QStringList tags;
        bool allStrings = true;
        for (const QJsonValue &value : document.array()) {
            allStrings = allStrings && value.isString();
            tags.append(value.toString());
        }
        if (allStrings)
            return tags;
    }
    QStringList tags;
    for (const QString &piece : text.split(u','))
        tags.append(piece.trimmed());
    if (text.isEmpty())
        return {};
    return tags;
}

void ResourceConfigController::saveTags(const QStringList &tags)
{
    ResourceConfig *r = selectedResourceConfig();
    if (!r)
        return;
    QJsonArray array;
    for (const QString &tag : tags) {
        if (!tag.isEmpty())
            array.append(tag);
    }
    const QString text = QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
    if (r->contextTags() != text)
        r->setContextTags(text);
}

void ResourceConfigController::saveRelated(const QList<RelatedResourceItem> &items)
{
    ResourceConfig *r = selectedResourceConfig();
    if (!r)
        return;
    const QString text = RelatedResourceItem::encodeList(items);
    if (r->relatedResources() != text)
        r->setRelatedResources(text);
}

QString ResourceConfigController::guessMimeType(const QString &urlText)
{
    const QUrl url(urlText);
    const QString fileName = url.isValid() ? url.fileName() : QString();
    const qsizetype dot = fileName.lastIndexOf(u'.');
    if (fileName.isEmpty() || dot < 0 || dot == fileName.size() - 1)
        return QStringLiteral("text/plain");
    static const QMimeDatabase database;
    const QMimeType type = database.mimeTypeForFile(fileName, QMimeDatabase::MatchExtension);
    if (!type.isValid() || type.isDefault())
        return QStringLiteral("text/plain");
    return type.name();
}

QList<ResourceConfig *> ResourceConfigController::filteredResources(const QString &query) const
{
    const QString needle = query.trimmed().toLower();
    const QList<ResourceConfig *> all = resourceConfigs();
    if (needle.isEmpty())
        return all;
    QList<ResourceConfig *> shown;
    for (ResourceConfig *r : all) {
        if (r->name().value_or(QString()).toLower().contains(needle) ||
            r->resourceDescription().value_or(QString()).toLower().contains(needle))
            shown.append(r);
    }
    return shown;
}

QString ResourceConfigController::rowName(const ResourceConfig *r)
{
    const QString name = r->name().value_or(QString());
    return name.isEmpty() ? QStringLiteral("Unnamed Resource") : name;
}

QString ResourceConfigController::rowDescription(const ResourceConfig *r)
{
    const QString text = r->resourceDescription().value_or(QString());
    return text.isEmpty() ? QStringLiteral("No description") : text;
}

QString ResourceConfigController::rowType(const ResourceConfig *r)
{
    const QString text = r->type().value_or(QString());
    return QStringLiteral("Type: ") + (text.isEmpty() ? QStringLiteral("default") : text);
}

QString ResourceConfigController::rowMimeType(const ResourceConfig *r)
{
    const QString text = r->mimeType().value_or(QString());
    return QStringLiteral("MIME: ") + (text.isEmpty() ? QStringLiteral("application/octet-stream") : text);
}

QString ResourceConfigController::deleteConfirmationText() const
{
    const ResourceConfig *r = resourceToDelete();
    const QString name = r ? r->name().value_or(QString()) : QString();
    return QStringLiteral("Are you sure you want to delete ") +
           (name.isEmpty() ? QStringLiteral("Unnamed Resource") : name) + QStringLiteral("? This action cannot be undone.");
}
