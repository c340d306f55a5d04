#include "views/script/RunScriptDialog.h"

#include "workbench/RunScriptManager.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

RunScriptDialog::RunScriptDialog(RunScriptManager *manager, Runner runner, QWidget *parent)
    : QDialog(parent), m_manager(manager), m_runner(std::move(runner))
{
    setObjectName(QStringLiteral("runScriptDialog"));
    setWindowTitle(QStringLiteral("Check and Run Script"));
    m_handler = new QLineEdit(manager->handlerName(), this);
    m_handler->setObjectName(QStringLiteral("handlerName"));
    m_rows = new QTableWidget(0, 3, this);
    m_rows->setObjectName(QStringLiteral("parameterRows"));
    m_rows->setHorizontalHeaderLabels({QStringLiteral("Key"), QStringLiteral("Type"), QStringLiteral("Value")});
    m_rows->horizontalHeader()->setStretchLastSection(true);
    for (const JSONParameter &row : manager->parameters())
        addRow(row.key, JSONParameter::typeName(row.valueType), row.value);
    auto *add = new QPushButton(QStringLiteral("Add Parameter"), this);
    auto *clear = new QPushButton(QStringLiteral("Clear All"), this);
    auto *execute = new QPushButton(QStringLiteral("Execute"), this);
    execute->setObjectName(QStringLiteral("execute"));
    execute->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"), this);
    connect(add, &QPushButton::clicked, this, [this] { addRow(QString(), QStringLiteral("string"), QString()); });
    connect(clear, &QPushButton::clicked, this, [this] { m_rows->setRowCount(0); });
    connect(execute, &QPushButton::clicked, this, &RunScriptDialog::execute);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Handler Name:"), m_handler);
    auto *top = new QHBoxLayout;
    top->addWidget(new QLabel(QStringLiteral("JSON Parameters"), this), 1);
    top->addWidget(add);
    top->addWidget(clear);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancel);
    buttons->addWidget(execute);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addLayout(top);
    layout->addWidget(m_rows, 1);
    layout->addLayout(buttons);
    resize(560, 360);
}

void RunScriptDialog::addRow(const QString &key, const QString &type, const QString &value)
{
    const int row = m_rows->rowCount();
    m_rows->insertRow(row);
    m_rows->setItem(row, 0, new QTableWidgetItem(key));
    auto *types = new QComboBox(m_rows);
    for (auto t : {JSONParameter::JSONValueType::string, JSONParameter::JSONValueType::number,
                   JSONParameter::JSONValueType::boolean, JSONParameter::JSONValueType::object,
                   JSONParameter::JSONValueType::array, JSONParameter::JSONValueType::null})
        types->addItem(JSONParameter::typeName(t));
    types->setCurrentText(type);
    m_rows->setCellWidget(row, 1, types);
    m_rows->setItem(row, 2, new QTableWidgetItem(value));
}

void RunScriptDialog::readRows()
{
    m_manager->clearAll();
    for (int row = 0; row < m_rows->rowCount(); ++row) {
        JSONParameter parameter;
        parameter.key = m_rows->item(row, 0) ? m_rows->item(row, 0)->text() : QString();
        parameter.valueType = JSONParameter::typeFromName(qobject_cast<QComboBox *>(m_rows->cellWidget(row, 1))->currentText());
        parameter.value = m_rows->item(row, 2) ? m_rows->item(row, 2)->text() : QString();
        m_manager->parameters().append(parameter);
    }
}

void RunScriptDialog::execute()
{
    m_manager->setHandlerName(m_handler->text());
    readRows();
    m_manager->execute(m_runner);
    if (!m_manager->isVisible())
        accept();
}
