#include "ChannelListPage.h"

#include "ChannelListModel.h"

#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QTreeView>
#include <QVBoxLayout>

ChannelListPage::ChannelListPage(const QString& theme, const QString& filter, QWidget* parent)
    : QWidget(parent)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    m_info = new QLabel(this);
    m_info->setObjectName(QStringLiteral("channelListInfo")); // coloured by the window's theme
    m_info->setTextFormat(Qt::PlainText); // shows the server's name
    m_info->setStyleSheet(QStringLiteral("font-weight: bold; padding: 4px;"));
    layout->addWidget(m_info);

    m_model = new ChannelListModel(this);
    m_model->setFilterText(filter);
    m_view = new QTreeView(this);
    m_view->setObjectName(QStringLiteral("channelList"));
    m_view->setModel(m_model);
    m_view->setRootIsDecorated(false);
    m_view->setAlternatingRowColors(true);
    m_view->setSortingEnabled(false);
    // Every row is one line: one height for all keeps big listings fast.
    m_view->setUniformRowHeights(true);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_view->header()->setMinimumHeight(30);
    m_view->header()->setStyleSheet(QStringLiteral("QHeaderView::section { padding: 4px; font-weight: bold; }"));
    if (theme == QLatin1String("dark")) {
        m_view->setStyleSheet(QStringLiteral(
            "QTreeView { background-color: #1E1E1E; color: #DDDDDD; alternate-background-color: #252525; }"
            "QTreeView::item:hover { background-color: #3A3A3A; }"
            "QTreeView::item:selected { background-color: #505050; }"));
    }
    m_view->header()->setSectionResizeMode(0, QHeaderView::Interactive);
    m_view->header()->setMinimumSectionSize(120);
    m_view->setColumnWidth(0, 200);
    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_view, &QWidget::customContextMenuRequested, this, &ChannelListPage::showContextMenu);
    connect(m_view, &QTreeView::doubleClicked, this, &ChannelListPage::onDoubleClicked);
    layout->addWidget(m_view);
    clear();
}

void ChannelListPage::clear()
{
    m_model->clear();
    m_info->setText(QStringLiteral("Server: loading..."));
}

void ChannelListPage::beginListing()
{
    m_view->setUpdatesEnabled(false);
    m_view->setSortingEnabled(false);
}

void ChannelListPage::endListing()
{
    m_view->setUpdatesEnabled(true);
    // Largest channels first; enabling sorting sorts by the indicator.
    m_view->header()->setSortIndicator(1, Qt::DescendingOrder);
    m_view->setSortingEnabled(true);
}

void ChannelListPage::onDoubleClicked(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    const QString name = m_model->channelAt(index.row()).name;
    if (!name.isEmpty())
        emit joinRequested(name, true);
}

void ChannelListPage::showContextMenu(const QPoint& pos)
{
    const QModelIndex index = m_view->indexAt(pos);
    if (!index.isValid())
        return;
    const QString name = m_model->channelAt(index.row()).name;
    const bool contained = m_isAutojoined && m_isAutojoined(name);

    QMenu menu(this);
    QAction* joinAction = menu.addAction(QStringLiteral("Join ") + name);
    QAction* autojoinAction = menu.addAction(QStringLiteral("Autojoin on connect"));
    autojoinAction->setCheckable(true);
    autojoinAction->setChecked(contained);

    QAction* chosen = menu.exec(m_view->mapToGlobal(pos));
    if (chosen == joinAction)
        emit joinRequested(name, false);
    else if (chosen == autojoinAction)
        emit autojoinToggled(name, !contained);
}
