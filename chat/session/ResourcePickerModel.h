#pragma once

#include <QList>
#include <QSet>
#include <QString>

class ResourceConfig;
class StoreContext;

// "Insert Resource name / related documents": the stored resources by name, a search over
// name, description, URI and related resources, rows ticked on and off; inserting gives one
// line per ticked row in list order. Main thread; the rows belong to the store's context.
class ResourcePickerModel {
public:
    // Fetches every resource by name; a failing fetch gives an empty list.
    void load(StoreContext *context);
    void setRows(QList<ResourceConfig *> rows) { m_rows = std::move(rows); }

    QString searchText;
    QSet<ResourceConfig *> selected;

    QList<ResourceConfig *> visibleRows() const;
    QString emptyText() const;
    void toggle(ResourceConfig *row);
    // "2 resource selected".
    QString footerText() const;
    // "name [related]" per ticked row, joined by newlines.
    QString insertText() const;

private:
    QList<ResourceConfig *> m_rows;
};
