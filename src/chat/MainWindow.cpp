#include "MainWindow.h"

#include "ChannelListModel.h"
#include "EmojiPicker.h"
#include "FindBar.h"
#include "HighlightTabBar.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "NetworkView.h"
#include "Session.h"
#include "ThemeManager.h"

#include <QCompleter>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QResizeEvent>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabBar>
#include <QTimer>
#include <QVBoxLayout>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");

} // namespace

MainWindow::MainWindow(QWidget* parent, Startup startup)
    : QMainWindow(parent)
{
    setupUI();
    m_networks.append(new NetworkView(this));
    // The theme the user chose last time ("light" on a first start).
    applyTheme(QSettings().value(QStringLiteral("theme"), QStringLiteral("light")).toString());
    setupMenuBar();
    initSystemTray();
    loadPreferences();
    updateStatusBar();

    resize(1280, 720);
    setWindowTitle(QStringLiteral("Quenvar"));
    if (startup == Startup::Normal)
        QTimer::singleShot(0, this, &MainWindow::startNetworks);
}

// The networks go with the widgets, after this class's members.
MainWindow::~MainWindow()
{
    NetworkView::storeOpenNetworks(m_networks);
    tabWidget->disconnect(this);
}

NetworkView* MainWindow::network() const
{
    return m_currentNetwork ? m_currentNetwork.data() : m_networks.value(0);
}

Session* MainWindow::session() const
{
    return network()->session();
}

void MainWindow::setupUI()
{
    auto* central = new QWidget(this);
    auto* mainLayout = new QVBoxLayout(central);

    splitter = new QSplitter(Qt::Horizontal, central);
    splitter->setHandleWidth(8);

    tabWidget = new MyTabWidget(splitter);
    tabBar = new HighlightTabBar(tabWidget);
    tabWidget->setPublicTabBar(tabBar);
    tabBar->setExpanding(true);
    tabBar->setTheme(currentTheme);
    tabBar->setContextMenuPolicy(Qt::CustomContextMenu);
    tabWidget->setTabsClosable(false);

    userList = new MemberListView(splitter);
    userList->setObjectName(QStringLiteral("userList"));
    userList->setMinimumWidth(100);
    userList->setContextMenuPolicy(Qt::CustomContextMenu);

    splitter->addWidget(tabWidget);
    splitter->addWidget(userList);

    connect(tabBar, &QTabBar::tabBarDoubleClicked, this, &MainWindow::closeTab);
    connect(tabWidget, &QTabWidget::tabCloseRequested, this, &MainWindow::closeTab);
    connect(tabWidget, &QTabWidget::currentChanged, this, &MainWindow::onTabChanged);
    connect(tabBar, &QWidget::customContextMenuRequested, this, &MainWindow::onTabContextMenu);
    connect(userList, &QWidget::customContextMenuRequested, this, &MainWindow::showUserContextMenu);
    connect(userList, &MemberListView::memberDoubleClicked, this, &MainWindow::onUserDoubleClicked);

    bottomStack = new QStackedWidget(central);
    bottomStack->setMaximumHeight(40);

    auto* inputRow = new QWidget(bottomStack);
    auto* inputLayout = new QHBoxLayout(inputRow);
    inputLayout->setContentsMargins(0, 0, 0, 0);
    inputLine = new QLineEdit(inputRow);
    inputLine->setPlaceholderText(QStringLiteral("Type a message..."));
    inputLine->setMinimumHeight(30);
    inputLine->setMaximumHeight(36);
    inputLine->setStyleSheet(QStringLiteral("QLineEdit { padding: 4px 8px; }"));
    connect(inputLine, &QLineEdit::returnPressed, this, &MainWindow::onSendInput);
    emojiButton = new QPushButton(QString(QChar(0xD83D)) + QChar(0xDE0A), inputRow);
    emojiButton->setToolTip(QStringLiteral("Insert emoji"));
    emojiButton->setFont(EmojiPicker::colourEmojiFont(emojiButton->font()));
    emojiButton->setFixedSize(36, 30);
    emojiButton->setCursor(Qt::PointingHandCursor);
    emojiButton->setStyleSheet(QStringLiteral(
        "QPushButton { background: transparent; border: none; font-size: 18px; padding: 0px; margin: 0px; }"
        "QPushButton:hover { background: rgba(128,128,128,0.2); border-radius: 4px; }"));
    connect(emojiButton, &QPushButton::clicked, this, &MainWindow::toggleEmojiPicker);
    inputLayout->addWidget(inputLine);
    inputLayout->addWidget(emojiButton);

    channelSearchEdit = new QLineEdit(bottomStack);
    channelSearchEdit->setPlaceholderText(QStringLiteral("Search channels..."));
    channelSearchEdit->setMaximumHeight(28);
    connect(channelSearchEdit, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (network()->channelListModel)
            network()->channelListModel->setFilterText(text);
    });

    bottomStack->addWidget(inputRow);
    bottomStack->addWidget(channelSearchEdit);
    bottomStack->setCurrentIndex(0);

    mainLayout->addWidget(splitter);
    mainLayout->addWidget(bottomStack);
    setCentralWidget(central);

    nickCompleter = new QCompleter(this);
    nickCompleter->setCaseSensitivity(Qt::CaseInsensitive);
    nickCompleter->setCompletionMode(QCompleter::PopupCompletion);
    inputLine->setCompleter(nickCompleter);
    // Tab completes the nick before the cursor; other keys bring the stale
    // completion word list up to date before the completer sees them.
    inputLine->installEventFilter(this);
    // While the completer's popup is open it gets the keys first (and hands
    // Tab to the line edit past any filter): watch it as well.
    nickCompleter->popup()->installEventFilter(this);
    // A paste with the mouse changes the text without a key: the line edit
    // signals the edit before it asks the completer.
    connect(inputLine, &QLineEdit::textEdited, this, &MainWindow::refreshNickCompletionModel);

    connect(new QShortcut(QKeySequence::Find, this), &QShortcut::activated, this, [this] {
        if (auto* bar = tabWidget->currentWidget()->findChild<FindBar*>())
            bar->open();
    });
    auto* closeShortcut = new QShortcut(QKeySequence::Close, this);
    closeShortcut->setContext(Qt::WindowShortcut);
    connect(closeShortcut, &QShortcut::activated, this, [this] { closeTab(tabWidget->currentIndex()); });
    // Through the tabs of every network, round the end.
    for (const auto& [keys, step] : { std::pair { QKeySequence(Qt::CTRL | Qt::Key_Tab), 1 },
             { QKeySequence(Qt::CTRL | Qt::Key_PageDown), 1 }, { QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Backtab), -1 },
             { QKeySequence(Qt::CTRL | Qt::Key_PageUp), -1 } }) {
        auto* shortcut = new QShortcut(keys, this);
        connect(shortcut, &QShortcut::activated, this, [this, step = step] { stepTab(step); });
    }
}

void MainWindow::stepTab(int step)
{
    const int count = tabWidget->count();
    if (count > 1)
        tabWidget->setCurrentIndex((tabWidget->currentIndex() + step + count) % count);
}

void MainWindow::onTabChanged(int index)
{
    NetworkView* net = NetworkView::of(tabWidget->widget(index));
    if (!net)
        return;
    if (m_currentNetwork && !currentTabName.isEmpty())
        m_currentNetwork->tabInputHistory.insert(currentTabName, inputLine->text());

    const bool otherNetwork = net != m_currentNetwork;
    m_currentNetwork = net;
    Session* s = net->session();
    currentTabName = tabKey(index);
    auto it = net->tabs.find(currentTabName);
    s->markRead(currentTabName);
    s->setCurrentBuffer(currentTabName);
    if (it != net->tabs.end() && it->highlighted) {
        it->highlighted = false;
        tabBar->unhighlightTab(tabWidget->currentIndex());
    }

    const bool isChannel = net->isChannelTab(currentTabName);
    const bool isChat = isChannel || net->isPrivateTab(currentTabName);
    updateUserListVisibility(isChannel);
    emojiButton->setVisible(isChat);

    bottomStack->setCurrentIndex(currentTabName == ListTab ? 1 : 0);
    // One search field for the List tabs of every network.
    if (currentTabName == ListTab && net->channelListModel
        && net->channelListModel->filterText() != channelSearchEdit->text())
        net->channelListModel->setFilterText(channelSearchEdit->text());
    inputLine->setPlaceholderText(currentTabName == ServerTab ? QStringLiteral("Type a command...")
                                                              : QStringLiteral("Type a message..."));

    userList->clear();
    if (isChannel) {
        if (s->hasMembers(currentTabName))
            userList->fill(s->members(currentTabName));
        if (it != net->tabs.end() && it->topicBar) {
            it->topicBar->show();
            net->updateTopicLabel(currentTabName);
            net->updateTopicEditButton(currentTabName);
        }
    }

    updateNickCompletionModel();
    if (otherNetwork)
        showNetworkState();
    else
        updateOwnUserAppearance();
    inputLine->setText(net->tabInputHistory.value(currentTabName));
    updateCloseButtons();
    QTimer::singleShot(0, this, &MainWindow::adjustSplitterToRatio);
}

// A server tab closes its network, when it is not the only one.
void MainWindow::closeTab(int index)
{
    NetworkView* net = NetworkView::of(tabWidget->widget(index));
    if (!net)
        return;
    const QString name = tabKey(index);
    if (name != ServerTab)
        net->closeTab(name);
    else if (m_networks.size() > 1)
        closeNetwork(net);
}

// A tab's title shows its name as it is: "&" would otherwise mark a shortcut
// ("&local" read as "local" with the l underlined).
QString MainWindow::tabTitle(const QString& name)
{
    QString title = name;
    return title.replace(QLatin1Char('&'), QLatin1String("&&"));
}

void MainWindow::showStartupWarning(const QString& text)
{
    session()->addLine(ServerTab, QStringLiteral("*** ") + text);
    auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Quenvar"), text, QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->show();
}

QString MainWindow::tabKey(int index) const
{
    const QWidget* page = tabWidget->widget(index);
    return page ? page->property("tabKey").toString() : QString();
}

void MainWindow::addTabPage(QWidget* page, const QString& key, int index)
{
    page->setProperty("tabKey", key);
    index = tabWidget->insertTab(index, page, tabTitle(key));
    tabWidget->setTabToolTip(index, key);
    // Each tab gets its own close button once; it finds its tab by its page.
    auto* button = new QPushButton(QString(QChar(0x00D7)), tabBar);
    button->setFlat(true);
    button->setFixedSize(20, 20);
    button->setCursor(Qt::ArrowCursor);
    button->setStyleSheet(ThemeManager::tabCloseButtonStyleSheet(index == tabWidget->currentIndex()));
    const QPointer<QWidget> target(page);
    connect(button, &QPushButton::clicked, this, [this, target] {
        if (target)
            closeTab(tabWidget->indexOf(target));
    });
    tabBar->setTabButton(index, QTabBar::LeftSide, button);
}

void MainWindow::updateCloseButtons()
{
    // Only the buttons whose tab became or stopped being the current one change.
    const int current = tabWidget->currentIndex();
    for (int i = 0; i < tabWidget->count(); ++i) {
        QWidget* button = tabBar->tabButton(i, QTabBar::LeftSide);
        const QString& style = ThemeManager::tabCloseButtonStyleSheet(i == current);
        if (button && button->styleSheet() != style)
            button->setStyleSheet(style);
    }
}

void MainWindow::updateUserListVisibility(bool isChannel)
{
    userListShouldBeVisible = isChannel;
    userList->setVisible(isChannel);
    adjustSplitterToRatio();
}

void MainWindow::adjustSplitterToRatio()
{
    if (!splitter || !adjustSplitterEnabled)
        return;
    const int total = splitter->width();
    if (total < 1)
        return;
    if (userListShouldBeVisible) {
        const int userWidth = total / 5;
        splitter->setSizes({ total - userWidth, userWidth });
    } else {
        splitter->setSizes({ total, 0 });
    }
}

void MainWindow::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    adjustSplitterToRatio();
}

void MainWindow::onTabContextMenu(const QPoint& pos)
{
    const int index = tabBar->tabAt(pos);
    if (index < 0)
        return;
    const QString key = tabKey(index);
    if (key == ServerTab || key == ListTab)
        return;

    QMenu menu(this);
    QAction* closeAction = menu.addAction(QStringLiteral("Close"));
    QAction* autojoinAction = menu.addAction(QStringLiteral("Autojoin on connect"));
    autojoinAction->setCheckable(true);
    // The tab's own network, which need not be the current tab's.
    Session* tabSession = NetworkView::of(tabWidget->widget(index))->session();
    const bool contained = tabSession->autojoinChannels().contains(key);
    autojoinAction->setChecked(contained);

    QAction* chosen = menu.exec(tabBar->mapToGlobal(pos));
    if (chosen == closeAction)
        closeTab(index);
    else if (chosen == autojoinAction)
        tabSession->setAutojoin(key, !contained);
}
