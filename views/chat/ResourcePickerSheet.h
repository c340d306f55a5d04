#pragma once

#include "chat/session/ResourcePickerModel.h"

#include <QDialog>
#include <functional>

class QLabel;
class QLineEdit;
class QListWidget;
class StoreContext;

// "Insert Resource name / related documents": a searchable list of the stored resources with
// a tick per row; "Insert" hands one line per ticked row to onInsert.
class ResourcePickerSheet : public QDialog {
    Q_OBJECT

public:
    ResourcePickerSheet(StoreContext *context, std::function<void(const QString &)> onInsert, QWidget *parent = nullptr);

    ResourcePickerModel &model() { return m_model; }
    QListWidget *list() const { return m_list; }
    void insert();

private:
    void refreshList();

    ResourcePickerModel m_model;
    std::function<void(const QString &)> m_onInsert;
    QLineEdit *m_search;
    QListWidget *m_list;
    QLabel *m_footer;
    bool m_refreshing = false;
};
