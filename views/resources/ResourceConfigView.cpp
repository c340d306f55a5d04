#include "views/resources/ResourceConfigView.h"

#include "views/common/CommandButton.h"

#include "store/PersistenceController.h"
#include "store/ResourceConfig.h"
#include "app/config/ResourceConfigController.h"
#include "app/security/AccessPanel.h"
#include "app/security/OpenPanelPresenter.h"
#include "views/common/QtFileDialogs.h"

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QPointer>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

ResourceConfigView::ResourceConfigView(ResourceConfigController *controller, QWidget *parent)
    : ConfigScreen(controller ? controller
                              : new ResourceConfigController(PersistenceController::shared()->viewContext(),
                                                             ConfigClipboard::shared()),
                   parent),
      m_controller(static_cast<ResourceConfigController *>(activeController()))
{
    build({.objectName = QStringLiteral("resourceConfigView"),
           .title = ResourceConfigController::screenTitle,
           .lead = ResourceConfigController::leadText,
           .helpFile = ResourceConfigController::helpFile,
           .helpTitle = QStringLiteral("Kelvara - Resources"),
           .filterName = QStringLiteral("resourceFilter"),
           .filterPlaceholder = ResourceConfigController::filterPlaceholder,
           .listName = QStringLiteral("resourceList"),
           .listFocus = ResourceConfigController::resourceListView,
           .listButtons = {{"add", "+"}, {"delete", "−"}, {"copy", "Copy"}, {"paste", "Paste"}},
           .paneKey = UserDefaultsKeys::spResourceConfigView,
           .form = [this] { return makeForm(); },
           .emptyText = ResourceConfigController::emptySelectionText,
           .emptyTextWraps = true,
           .deleteCommand = [this] { m_controller->deleteButtonTapped(); },
           .deleteTitle = QStringLiteral("Delete Resource"),
           .deleteText = [this] { return m_controller->deleteConfirmationText(); }});

    // Each keystroke is a pending change (Save lights up, a quit asks). A URI or priority
    // that does not read yet keeps its typed text in the field while it has the focus.
    commitAsTyped(m_name, [this] { m_controller->setName(m_name->text()); });
    commitAsTyped(m_description, [this] { m_controller->setResourceDescription(m_description->text()); });
    commitAsTyped(m_type, [this] { m_controller->setType(m_type->text()); });
    commitAsTyped(m_mimeType, [this] { m_controller->setMimeType(m_mimeType->text()); });
    commitAsTyped(m_uri, [this] { m_controller->setUriText(m_uri->text()); });
    commitAsTyped(m_priority, [this] { m_controller->setPriorityText(m_priority->text()); });
    commitAsTyped(m_values, [this] { m_controller->setValuesText(m_values->text()); });
    connect(m_audience, &QComboBox::textActivated, this, [this](const QString &word) { m_controller->setAudience(word); });
    connect(button(QStringLiteral("editTags")), &QPushButton::clicked, this, &ResourceConfigView::editTags);
    connect(button(QStringLiteral("editRelated")), &QPushButton::clicked, this, &ResourceConfigView::editRelatedResources);
    rebuildList();
}

QLayout *ResourceConfigView::makeForm()
{
    auto field = [this](const char *name) {
        auto *edit = new QLineEdit(this);
        edit->setObjectName(QString::fromLatin1(name));
        return edit;
    };
    m_name = field("resourceName");
    m_description = field("resourceDescription");
    m_type = field("resourceType");
    m_mimeType = field("resourceMimeType");
    m_uri = field("resourceUri");
    m_priority = field("resourceAnnPriority");
    m_values = field("resourceValues");
    m_values->setPlaceholderText(QStringLiteral("Completions of a template: id: 1, 2; kind: a, b"));
    m_audience = new QComboBox(this);
    m_audience->setObjectName(QStringLiteral("resourceAnnAudience"));
    m_audience->addItems(ResourceConfigController::audienceChoices);
    m_tagsLabel = new QLabel(this);
    m_relatedLabel = new QLabel(this);
    auto *tags = makeButton(this, QStringLiteral("editTags"), QStringLiteral("Edit…"));
    auto *related = makeButton(this, QStringLiteral("editRelated"), QStringLiteral("Edit…"));

    auto *form = new QFormLayout;
    form->addRow(new QLabel(QStringLiteral("<b>Resource Definition</b>"), this));
    form->addRow(QStringLiteral("Name:"), m_name);
    form->addRow(QStringLiteral("Description:"), m_description);
    form->addRow(QStringLiteral("Type:"), m_type);
    form->addRow(QStringLiteral("MIME Type:"), m_mimeType);
    form->addRow(QStringLiteral("URI:"), m_uri);
    form->addRow(QStringLiteral("Values:"), m_values);
    form->addRow(new QLabel(QStringLiteral("<b>Annotation</b>"), this));
    form->addRow(QStringLiteral("Audience:"), m_audience);
    form->addRow(QStringLiteral("Priority:"), m_priority);
    form->addRow(new QLabel(QStringLiteral("<b>Resource Context</b>"), this));
    auto *tagRow = new QHBoxLayout;
    tagRow->addWidget(m_tagsLabel, 1);
    tagRow->addWidget(tags);
    form->addRow(QStringLiteral("Context Tags:"), tagRow);
    auto *relatedRow = new QHBoxLayout;
    relatedRow->addWidget(m_relatedLabel, 1);
    relatedRow->addWidget(related);
    form->addRow(QStringLiteral("Related Resources:"), relatedRow);
    auto *page = new QVBoxLayout;
    page->addLayout(form);
    page->addStretch();
    page->addLayout(saveRow());
    return page;
}

void ResourceConfigView::rebuildList()
{
    m_showing = true;
    list()->clear();
    for (ResourceConfig *resource : m_controller->filteredResources(filterField()->text()))
        addRow(ResourceConfigController::rowName(resource) + u'\n' + ResourceConfigController::rowDescription(resource) +
                   u'\n' + ResourceConfigController::rowType(resource) + QStringLiteral("   ") +
                   ResourceConfigController::rowMimeType(resource),
               resource);
    m_showing = false;
    showSelection();
}

void ResourceConfigView::showSelection()
{
    ResourceConfig *resource = m_controller->selectedResourceConfig();
    showCommonState();
    if (!resource)
        return;
    // A field being edited keeps what the user typed.
    auto show = [](QLineEdit *edit, const QString &text) {
        if (!edit->hasFocus() && edit->text() != text) {
            edit->setText(text);
            edit->setCursorPosition(0);
        }
    };
    show(m_name, resource->name().value_or(QString()));
    show(m_description, resource->resourceDescription().value_or(QString()));
    show(m_type, resource->type().value_or(QString()));
    show(m_mimeType, resource->mimeType().value_or(QString()));
    show(m_uri, ResourceConfigController::uriText(resource));
    show(m_priority, ResourceConfigController::priorityText(resource));
    show(m_values, ResourceConfigController::valuesText(resource));
    // A stored audience the picker does not offer (an imported "user, assistant") shows as it is.
    const QString audience = resource->annAudience().value_or(QString());
    if (!audience.isEmpty() && m_audience->findText(audience) < 0)
        m_audience->addItem(audience);
    m_audience->setCurrentIndex(m_audience->findText(audience));
    const QStringList tags = ResourceConfigController::readTags(resource->contextTags().value_or(QString()));
    m_tagsLabel->setText(tags.isEmpty() ? QStringLiteral("None") : tags.join(QStringLiteral(", ")));
    const qsizetype related = ResourceConfigController::readRelated(resource->relatedResources().value_or(QString())).size();
    m_relatedLabel->setText(related == 0 ? QStringLiteral("None") : QStringLiteral("%1 related").arg(related));
}

void ResourceConfigView::editTags()
{
    ResourceConfig *resource = m_controller->selectedResourceConfig();
    if (!resource)
        return;
    QDialog sheet(this);
    sheet.setObjectName(QStringLiteral("contextTagsSheet"));
    sheet.setWindowTitle(QStringLiteral("Context Tags"));
    auto *list = new QListWidget(&sheet);
    list->setObjectName(QStringLiteral("tagList"));
    auto *count = new QLabel(&sheet);
    auto recount = [list, count] { count->setText(QStringLiteral("Context Tags (%1)").arg(list->count())); };
    for (const QString &tag : ResourceConfigController::readTags(resource->contextTags().value_or(QString()))) {
        auto *item = new QListWidgetItem(tag, list);
        item->setFlags(item->flags() | Qt::ItemIsEditable);
    }
    recount();
    auto *add = makeButton(&sheet, QStringLiteral("addTag"), QStringLiteral("Add tag "));
    auto *remove = makeButton(&sheet, QStringLiteral("deleteTag"), CommandButton::label(QStringLiteral("Delete tag"), QKeySequence(QStringLiteral("Ctrl+D"))));
    remove->setShortcut(QKeySequence(QStringLiteral("Ctrl+D")));
    connect(add, &QPushButton::clicked, &sheet, [list, recount] {
        auto *item = new QListWidgetItem(QString(), list);
        item->setFlags(item->flags() | Qt::ItemIsEditable);
        list->setCurrentItem(item);
        list->editItem(item);
        recount();
    });
    connect(remove, &QPushButton::clicked, &sheet, [list, recount] {
        delete list->currentItem();
        recount();
    });
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, &sheet);
    connect(buttons, &QDialogButtonBox::accepted, &sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &sheet, &QDialog::reject);
    auto *row = new QHBoxLayout;
    row->addWidget(add);
    row->addWidget(remove);
    auto *layout = new QVBoxLayout(&sheet);
    layout->addWidget(count);
    layout->addWidget(list);
    layout->addLayout(row);
    layout->addWidget(buttons);
    if (sheet.exec() != QDialog::Accepted)
        return;
    QStringList tags;
    for (int i = 0; i < list->count(); ++i)
        tags.append(list->item(i)->text().trimmed());
    m_controller->saveTags(tags);
    showSelection();
}

void ResourceConfigView::editRelatedResources()
{
    ResourceConfig *resource = m_controller->selectedResourceConfig();
    if (!resource)
        return;
    QList<RelatedResourceItem> items =
        ResourceConfigController::readRelated(resource->relatedResources().value_or(QString()));
    QDialog sheet(this);
    sheet.setObjectName(QStringLiteral("relatedResourcesSheet"));
    sheet.setWindowTitle(QStringLiteral("Related Resources"));
    auto *table = new QTableWidget(0, 3, &sheet);
    table->setObjectName(QStringLiteral("relatedTable"));
    table->setHorizontalHeaderLabels({QStringLiteral("Resource ID"), QStringLiteral("Type"), QStringLiteral("URL")});
    table->horizontalHeader()->setStretchLastSection(true);
    auto addRow = [table](const RelatedResourceItem &item) {
        const int row = table->rowCount();
        table->insertRow(row);
        table->setItem(row, 0, new QTableWidgetItem(item.resourceId));
        table->setItem(row, 1, new QTableWidgetItem(item.resourceType));
        table->setItem(row, 2, new QTableWidgetItem(item.url));
    };
    for (const RelatedResourceItem &item : items)
        addRow(item);
    // A changed URL sets its row's type by the guess.
    connect(table, &QTableWidget::itemChanged, &sheet, [table](QTableWidgetItem *item) {
        if (item->column() == 2 && table->item(item->row(), 1))
            table->item(item->row(), 1)->setText(ResourceConfigController::guessMimeType(
                QUrl::fromUserInput(item->text()).toString()));
    });
    auto *add = makeButton(&sheet, QStringLiteral("addRelated"), QStringLiteral("Add resource"));
    auto *choose = makeButton(&sheet, QStringLiteral("chooseRelated"), QStringLiteral("Choose file or folder..."));
    auto *remove = makeButton(&sheet, QStringLiteral("deleteRelated"), CommandButton::label(QStringLiteral("Delete resource"), QKeySequence(QStringLiteral("Ctrl+D"))));
    remove->setShortcut(QKeySequence(QStringLiteral("Ctrl+D")));
    connect(add, &QPushButton::clicked, &sheet, [addRow] { addRow(RelatedResourceItem::makeNew()); });
    connect(remove, &QPushButton::clicked, &sheet, [table] {
        if (table->currentRow() >= 0)
            table->removeRow(table->currentRow());
    });
    connect(choose, &QPushButton::clicked, &sheet, [table] {
        const int row = table->currentRow();
        if (row < 0)
            return;
        // The open panel takes a file or a folder alike.
        OpenPanelRequest request;
        request.message = QStringLiteral("Select a file or folder for this related resource");
        request.prompt = QStringLiteral("Select");
        request.canChooseFiles = true;
        request.canChooseDirectories = true;
        OpenPanelPresenter *panel = AccessPanel::presenter() ? AccessPanel::presenter() : QtFileDialogs::instance();
        QPointer<QTableWidget> rows(table);
        panel->present(request, [rows, row](const QUrl &chosen) {
            if (!rows || chosen.isEmpty() || row >= rows->rowCount())
                return;
            rows->item(row, 2)->setText(chosen.toLocalFile());
            rows->item(row, 1)->setText(ResourceConfigController::guessMimeType(chosen.toString()));
        });
    });
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, &sheet);
    connect(buttons, &QDialogButtonBox::accepted, &sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &sheet, &QDialog::reject);
    auto *row = new QHBoxLayout;
    row->addWidget(add);
    row->addWidget(choose);
    row->addWidget(remove);
    auto *layout = new QVBoxLayout(&sheet);
    layout->addWidget(table);
    layout->addLayout(row);
    layout->addWidget(buttons);
    sheet.resize(640, 320);
    if (sheet.exec() != QDialog::Accepted)
        return;
    QList<RelatedResourceItem> saved;
    for (int r = 0; r < table->rowCount(); ++r) {
        RelatedResourceItem item;
        item.resourceId = table->item(r, 0)->text();
        item.resourceType = table->item(r, 1)->text();
        item.url = table->item(r, 2)->text();
        saved.append(item);
    }
    m_controller->saveRelated(saved);
    showSelection();
}
