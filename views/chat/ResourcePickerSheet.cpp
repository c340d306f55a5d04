#include "views/chat/ResourcePickerSheet.h"

#include "store/ResourceConfig.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

ResourcePickerSheet::ResourcePickerSheet(StoreContext *context, std::function<void(const QString &)> onInsert, QWidget *parent)
    : QDialog(parent), m_onInsert(std::move(onInsert))
{
    setObjectName(QStringLiteral("resourcePicker"));
    setWindowTitle(QStringLiteral("Insert Resource name / related documents"));
    resize(480, 480);
    m_model.load(context);
    m_search = new QLineEdit(this);
    m_search->setPlaceholderText(QStringLiteral("Search resources…"));
    m_list = new QListWidget(this);
    m_footer = new QLabel(this);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    buttons->addButton(QStringLiteral("Insert"), QDialogButtonBox::AcceptRole);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_footer);
    layout->addWidget(buttons);
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_model.searchText = text;
        refreshList();
    });
    connect(m_list, &QListWidget::itemChanged, this, [this](QListWidgetItem *item) {
        if (m_refreshing)
            return;
        m_model.toggle(static_cast<ResourceConfig *>(item->data(Qt::UserRole).value<void *>()));
        m_footer->setText(m_model.footerText());
    });
    connect(buttons, &QDialogButtonBox::accepted, this, &ResourcePickerSheet::insert);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    refreshList();
}

void ResourcePickerSheet::refreshList()
{
    m_refreshing = true;
    m_list->clear();
    const QList<ResourceConfig *> rows = m_model.visibleRows();
    for (ResourceConfig *row : rows) {
        auto *item = new QListWidgetItem(row->name().value_or(QString()), m_list);
        item->setToolTip(row->resourceDescription().value_or(QString()));
        item->setData(Qt::UserRole, QVariant::fromValue<void *>(row));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(m_model.selected.contains(row) ? Qt::Checked : Qt::Unchecked);
    }
    if (rows.isEmpty())
        new QListWidgetItem(m_model.emptyText(), m_list);
    m_footer->setText(m_model.footerText());
    m_refreshing = false;
}

void ResourcePickerSheet::insert()
{
    m_onInsert(m_model.insertText());
    accept();
}
