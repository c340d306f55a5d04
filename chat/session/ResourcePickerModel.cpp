#include "chat/session/ResourcePickerModel.h"

#include "store/ResourceConfig.h"
#include "store/ResourceQueryService.h"

#include <QStringList>
#include <QUrl>

void ResourcePickerModel::load(StoreContext *context)
{
    m_rows = context ? ResourceQueryService::fetchResourceConfigs(context).valueOr({}) : QList<ResourceConfig *>();
}

QList<ResourceConfig *> ResourcePickerModel::visibleRows() const
{
    const QString query = searchText.trimmed();
    if (query.isEmpty())
        return m_rows;
    QList<ResourceConfig *> rows;
    for (ResourceConfig *row : m_rows) {
        const QString uri = row->uri() ? row->uri()->toString() : QString();
        for (const QString &field : {row->name().value_or(QString()), row->resourceDescription().value_or(QString()), uri,
                                     row->relatedResources().value_or(QString())}) {
            if (field.contains(query, Qt::CaseInsensitive)) {
                rows.append(row);
                break;
            }
        }
    }
    return rows;
}

QString ResourcePickerModel::emptyText() const
{
    return m_rows.isEmpty() ? QStringLiteral("No resources configured.") : QStringLiteral("No results");
}

void ResourcePickerModel::toggle(ResourceConfig *row)
{
    if (!selected.remove(row))
        selected.insert(row);
}

QString ResourcePickerModel::footerText() const
{
    return QString::number(selected.size()) + QStringLiteral(" resource") + QStringLiteral(" selected");
}

QString ResourcePickerModel::insertText() const
{
    QStringList lines;
    for (ResourceConfig *row : m_rows) {
        if (!selected.contains(row))
            continue;
        const QString name = row->name().value_or(QString());
        const QString related = row->relatedResources().value_or(QString());
        lines.append(!related.isEmpty() && !name.isEmpty() ? name + QStringLiteral(" [") + related + u']' : name);
    }
    return lines.join(u'\n');
}
