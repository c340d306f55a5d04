#include "views/tools/ToolSchemaEditorDialog.h"

#include "views/common/CommandButton.h"
#include "views/common/PanePosition.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QFontDatabase>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTabWidget>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

ToolSchemaEditorDialog::ToolSchemaEditorDialog(Editor editor, bool input, QWidget *parent)
    : QDialog(parent), m_editor(std::move(editor))
{
    setObjectName(input ? QStringLiteral("inputSchemaEditor") : QStringLiteral("outputSchemaEditor"));
    setWindowTitle(input ? QStringLiteral("Add Input Scheme") : QStringLiteral("Add Output Scheme"));
    m_schemaType = new QLineEdit(this);
    m_required = new QLineEdit(this);
    m_required->setObjectName(QStringLiteral("requiredParams"));
    m_required->setPlaceholderText(QStringLiteral("name,other"));
    m_parameters = new QListWidget(this);
    m_parameters->setObjectName(QStringLiteral("parameterList"));
    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("parameterName"));
    m_type = new QComboBox(this);
    m_type->setObjectName(QStringLiteral("parameterType"));
    m_type->addItems(PropertyData::jsonTypes);
    m_description = new QLineEdit(this);
    m_default = new QLineEdit(this);
    m_itemType = new QComboBox(this);
    m_itemType->setObjectName(QStringLiteral("parameterItemType"));
    m_itemType->addItems(PropertyData::propTypes);
    // The items of a parameter that is not an object, as JSON (an array's element schema).
    m_items = new QLineEdit(this);
    m_items->setObjectName(QStringLiteral("parameterItems"));
    m_items->setPlaceholderText(QStringLiteral("{\"type\": \"string\"}"));
    m_members = new QTableWidget(0, 3, this);
    m_members->setObjectName(QStringLiteral("objectMembers"));
    m_members->setHorizontalHeaderLabels({QStringLiteral("Name"), QStringLiteral("Type"), QStringLiteral("Description")});
    m_members->horizontalHeader()->setStretchLastSection(true);
    m_enum = new QLineEdit(this);
    m_enum->setObjectName(QStringLiteral("parameterEnum"));
    m_enum->setPlaceholderText(QStringLiteral("Allowed values, comma-separated"));
    m_json = new QPlainTextEdit(this);
    m_json->setObjectName(QStringLiteral("schemaJson"));
    m_json->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_json->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_jsonMessage = new QLabel(this);
    m_jsonMessage->setObjectName(QStringLiteral("schemaJsonMessage"));
    m_jsonMessage->setWordWrap(true);

    // A button with a shortcut names its keys after the text, as this desktop writes them.
    auto button = [this](const char *name, const QString &text, const char *shortcut = nullptr) {
        const QKeySequence keys(QString::fromLatin1(shortcut ? shortcut : ""));
        auto *b = new QPushButton(shortcut ? CommandButton::label(text, keys) : text, this);
        b->setObjectName(QString::fromLatin1(name));
        b->setAutoDefault(false);
        if (shortcut)
            b->setShortcut(keys);
        return b;
    };
    QPushButton *addParam = button("addParameter", QStringLiteral("Add Parameter"), "Ctrl+N");
    QPushButton *deleteParam = button("deleteParameter", QStringLiteral("Delete Parameter"), "Ctrl+D");
    QPushButton *addMember = button("addProperty", QStringLiteral("Add Property"));
    QPushButton *deleteMember = button("deleteProperty", QStringLiteral("Delete Property"));
    QPushButton *save = button("save", QStringLiteral("Save changes"), "Ctrl+S");
    QPushButton *revert = button("revert", QStringLiteral("Revert changes"), "Ctrl+U");
    QPushButton *cancel = button("cancel", QStringLiteral("Cancel"));
    cancel->setToolTip(QStringLiteral("Leave unchanged"));

    auto *top = new QFormLayout;
    top->addRow(QStringLiteral("Type:"), m_schemaType);
    top->addRow(QStringLiteral("Required:"), m_required);
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Name:"), m_name);
    form->addRow(QStringLiteral("Type:"), m_type);
    form->addRow(QStringLiteral("Description:"), m_description);
    form->addRow(QStringLiteral("Default:"), m_default);
    form->addRow(QStringLiteral("Enum values:"), m_enum);
    form->addRow(QStringLiteral("Item type:"), m_itemType);
    form->addRow(QStringLiteral("Items:"), m_items);
    form->addRow(QStringLiteral("Members:"), m_members);
    auto *memberButtons = new QHBoxLayout;
    memberButtons->addWidget(addMember);
    memberButtons->addWidget(deleteMember);
    form->addRow(QString(), memberButtons);
    auto *left = new QVBoxLayout;
    left->addWidget(m_parameters, 1);
    left->addWidget(addParam);
    left->addWidget(deleteParam);
    auto *listSide = new QWidget(this);
    left->setContentsMargins(0, 0, 0, 0);
    listSide->setLayout(left);
    auto *formSide = new QWidget(this);
    form->setContentsMargins(0, 0, 0, 0);
    formSide->setLayout(form);
    auto *middle = new QSplitter(Qt::Horizontal, this);
    middle->setObjectName(QStringLiteral("parameterSplit"));
    middle->addWidget(listSide);
    middle->addWidget(formSide);
    middle->setStretchFactor(1, 1);
    middle->setChildrenCollapsible(false);
    PanePosition::keep(middle, input ? UserDefaultsKeys::spToolInputSchemeView : UserDefaultsKeys::spToolOutputSchemeView);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(revert);
    bottom->addStretch();
    bottom->addWidget(cancel);
    bottom->addWidget(save);
    auto *formPage = new QWidget(this);
    auto *formLayout = new QVBoxLayout(formPage);
    formLayout->addLayout(top);
    formLayout->addWidget(middle, 1);
    auto *jsonPage = new QWidget(this);
    auto *jsonLayout = new QVBoxLayout(jsonPage);
    jsonLayout->addWidget(m_json, 1);
    jsonLayout->addWidget(m_jsonMessage);
    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(QStringLiteral("schemaTabs"));
    m_tabs->addTab(formPage, QStringLiteral("Form"));
    m_tabs->addTab(jsonPage, QStringLiteral("JSON"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs, 1);
    layout->addLayout(bottom);
    resize(760, 460);

    connect(m_schemaType, &QLineEdit::textEdited, this, [this](const QString &t) { withEditor([&](auto &e) { e.setSchemaType(t); }); });
    connect(m_required, &QLineEdit::textEdited, this, [this](const QString &t) { withEditor([&](auto &e) { e.setRequiredParams(t); }); });
    connect(m_name, &QLineEdit::textEdited, this, [this](const QString &t) {
        withEditor([&](auto &e) { e.setParameterName(t); });
        if (QListWidgetItem *item = m_parameters->currentItem())
            item->setText(t);
    });
    connect(m_description, &QLineEdit::textEdited, this,
            [this](const QString &t) { withEditor([&](auto &e) { e.setParameterDescription(t); }); });
    connect(m_default, &QLineEdit::textEdited, this, [this](const QString &t) { withEditor([&](auto &e) { e.setDefaultValue(t); }); });
    connect(m_enum, &QLineEdit::textEdited, this, [this](const QString &t) { withEditor([&](auto &e) { e.setEnumValues(t); }); });
    connect(m_json, &QPlainTextEdit::textChanged, this, &ToolSchemaEditorDialog::applyJson);
    // Each tab shows what the other wrote.
    connect(m_tabs, &QTabWidget::currentChanged, this, [this](int index) { index == 1 ? showJson() : showForm(); });
    connect(m_items, &QLineEdit::textEdited, this, [this](const QString &t) { withEditor([&](auto &e) { e.setItems(t); }); });
    connect(m_type, &QComboBox::textActivated, this, [this](const QString &t) {
        withEditor([&](auto &e) { e.setParameterType(t); });
        showForm();
    });
    connect(m_itemType, &QComboBox::textActivated, this, [this](const QString &t) { withEditor([&](auto &e) { e.setItemType(t); }); });
    connect(m_parameters, &QListWidget::currentRowChanged, this, [this](int row) {
        if (m_loading || row < 0)
            return;
        withEditor([&](auto &e) { e.select(e.properties().value(row)); });
        showForm();
    });
    connect(m_members, &QTableWidget::itemChanged, this, [this](QTableWidgetItem *item) {
        if (m_loading)
            return;
        const int row = item->row();
        withEditor([&](auto &e) {
            ObjectProperty member = e.editedProperty().objectProperties.value(row);
            member.name = m_members->item(row, 0) ? m_members->item(row, 0)->text() : QString();
            member.type = m_members->item(row, 1) ? m_members->item(row, 1)->text() : QStringLiteral("string");
            member.description = m_members->item(row, 2) ? m_members->item(row, 2)->text() : QString();
            e.setObjectProperty(row, member);
        });
    });
    connect(addParam, &QPushButton::clicked, this, &ToolSchemaEditorDialog::addParameter);
    connect(deleteParam, &QPushButton::clicked, this, [this] {
        const auto answer = QMessageBox::question(
            this, QStringLiteral("Delete Property"),
            QStringLiteral("Are you sure you want to delete this property? This action cannot be undone."));
        if (answer != QMessageBox::Yes)
            return;
        withEditor([](auto &e) { e.deleteParameter(); });
        showForm();
    });
    connect(addMember, &QPushButton::clicked, this, [this] {
        withEditor([](auto &e) { e.addObjectProperty(); });
        showForm();
    });
    connect(deleteMember, &QPushButton::clicked, this, [this] {
        const int row = m_members->currentRow();
        withEditor([&](auto &e) { e.deleteObjectProperty(row); });
        showForm();
    });
    connect(save, &QPushButton::clicked, this, &ToolSchemaEditorDialog::saveAndClose);
    connect(revert, &QPushButton::clicked, this, &ToolSchemaEditorDialog::revertChanges);
    connect(cancel, &QPushButton::clicked, this, [this] {
        withEditor([](auto &e) { e.cancel(); });
        reject();
    });
    showForm();
}

void ToolSchemaEditorDialog::addParameter()
{
    withEditor([](auto &e) { e.addParameter(); });
    showForm();
    QTimer::singleShot(100, m_name, [this] { m_name->setFocus(); });
}

void ToolSchemaEditorDialog::saveAndClose()
{
    withEditor([](auto &e) { e.save(); });
    accept();
}

void ToolSchemaEditorDialog::revertChanges()
{
    withEditor([](auto &e) { e.revert(); });
    m_tabs->currentIndex() == 1 ? showJson() : showForm();
}

void ToolSchemaEditorDialog::showJson()
{
    m_loading = true;
    QString error;
    const QString text = withEditor([&](auto &e) { return e.schemaJsonText(&error); });
    m_json->setPlainText(text);
    m_json->setReadOnly(text.isEmpty());
    m_jsonMessage->setText(error);
    m_loading = false;
}

void ToolSchemaEditorDialog::applyJson()
{
    if (m_loading)
        return;
    const std::optional<QString> failure = withEditor([&](auto &e) { return e.applySchemaJson(m_json->toPlainText()); });
    m_jsonMessage->setText(failure.value_or(QString()));
}

void ToolSchemaEditorDialog::showChoice(QComboBox *choice, const QString &value)
{
    // A stored value the picker does not offer (an imported "integer") is shown as it is.
    if (choice->findText(value) < 0)
        choice->addItem(value);
    choice->setCurrentText(value);
}

void ToolSchemaEditorDialog::showForm()
{
    m_loading = true;
    withEditor([this](auto &e) {
        m_schemaType->setText(e.schemaType());
        m_required->setText(e.requiredParams());
        m_parameters->clear();
        int current = -1;
        const auto properties = e.properties();
        for (int i = 0; i < properties.size(); ++i) {
            m_parameters->addItem(properties.at(i)->parameterName().value_or(QString()));
            if (properties.at(i) == e.selectedProperty())
                current = i;
        }
        m_parameters->setCurrentRow(current);
        const PropertyData &form = e.editedProperty();
        m_name->setText(form.parameterName);
        showChoice(m_type, form.parameterType);
        m_description->setText(form.parameterDescription);
        m_description->setCursorPosition(0);
        m_default->setText(form.defaultValue);
        m_enum->setText(form.enumValues);
        m_enum->setEnabled(e.selectedProperty() && form.parameterType == QLatin1String("string"));
        showChoice(m_itemType, form.itemType);
        const bool object = form.parameterType == QLatin1String("object");
        // An object's items are its members below; any other type's are written as text.
        m_items->setEnabled(!object && e.selectedProperty());
        m_items->setText(object ? QString() : form.items);
        m_members->setEnabled(object);
        m_members->setRowCount(0);
        for (const ObjectProperty &member : form.objectProperties) {
            const int row = m_members->rowCount();
            m_members->insertRow(row);
            m_members->setItem(row, 0, new QTableWidgetItem(member.name));
            m_members->setItem(row, 1, new QTableWidgetItem(member.type));
            m_members->setItem(row, 2, new QTableWidgetItem(member.description));
        }
        findChild<QPushButton *>(QStringLiteral("addProperty"))->setEnabled(object);
        findChild<QPushButton *>(QStringLiteral("deleteProperty"))->setEnabled(object);
    });
    m_loading = false;
}
