#include "MainWindow.h"

#include "ChannelListModel.h"

#include "ChatPage.h"
#include "FindBar.h"
#include "ChatView.h"
#include "EmojiPicker.h"
#include "HighlightTabBar.h"
#include "MemberListView.h"
#include "MyTabWidget.h"
#include "Session.h"
#include "ThemeManager.h"

#include <QCompleter>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QResizeEvent>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabBar>
#include <QTimer>
#include <QVBoxLayout>

namespace {

const QString ServerTab = QStringLiteral("Server");
const QString ListTab = QStringLiteral("List");

} // namespace

// What a tab is follows the network's channel prefixes ("&local" is a channel where the server says so).
bool MainWindow::isChannelTab(const QString& key) const
{
    return m_session->typeOf(key) == Session::BufferType::Channel;
}

bool MainWindow::isPrivateTab(const QString& key) const
{
    return !isChannelTab(key) && key != ServerTab && key != ListTab;
}

MainWindow::MainWindow(QWidget* parent, Startup startup)
    : QMainWindow(parent)
{
    m_session = new Session(this);
    setupUI();
    // The theme the user chose last time ("light" on a first start).
    applyTheme(QSettings().value(QStringLiteral("theme"), QStringLiteral("light")).toString());
    setupMenuBar();
    initSystemTray();
    createServerTab();
    loadPreferences();

    connectSession();
    updateStatusBar();

    resize(1280, 720);
    setWindowTitle(QStringLiteral("Quenvar"));
    if (startup == Startup::OpenConnectDialog)
        QTimer::singleShot(0, this, &MainWindow::showConnectDialog);
}

// The session goes with the widgets, after this class's members.
MainWindow::~MainWindow()
{
    m_session->disconnect(this);
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

    connect(tabBar, &QTabBar::tabBarDoubleClicked, this, [this](int index) {
        if (index >= 0 && tabKey(index) != ServerTab)
            closeTab(index);
    });
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
        if (channelListModel)
            channelListModel->setFilterText(text);
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
    connect(closeShortcut, &QShortcut::activated, this, [this] {
        if (currentTabName != ServerTab)
            closeTab(tabWidget->currentIndex());
    });
}

void MainWindow::createServerTab()
{
    QWidget* page = createChannelTab(ServerTab, false);
    TabInfo info;
    info.widget = page;
    info.chatView = page->findChild<ChatView*>();
    tabs.insert(ServerTab, info);
    addTabPage(page, ServerTab);
    currentTabName = ServerTab;
    inputLine->setPlaceholderText(QStringLiteral("Type a command..."));
    userList->hide();
    emojiButton->hide();
    userListShouldBeVisible = false;
    adjustSplitterToRatio();
    updateNickCompletionModel();
}

QWidget* MainWindow::createChannelTab(const QString& name, bool isChannel)
{
    // A tab opened later reads in the same font as the ones already open.
    return ChatPage::create(isChannel, name != ServerTab, currentChatFont(), inputLine);
}

MainWindow::TabInfo& MainWindow::registerTab(const QString& name, QWidget* page)
{
    TabInfo info;
    info.widget = page;
    info.chatView = page->findChild<ChatView*>();
    if (isChannelTab(name)) {
        info.topicBar = page->findChild<QWidget*>(QStringLiteral("topicBar"));
        info.topicLabel = page->findChild<QLabel*>(QStringLiteral("topicLabel"));
        info.editTopicBtn = page->findChild<QPushButton*>(QStringLiteral("editTopicBtn"));
        if (info.editTopicBtn)
            connect(info.editTopicBtn, &QPushButton::clicked, this, [this, name] { editTopic(name); });
    }
    if (isPrivateTab(name))
        info.peerNick = name;
    TabInfo& stored = tabs.insert(name, info).value();
    addTabPage(page, name);
    return stored;
}

QString MainWindow::findPrivateChatTab(const QString& nick) const
{
    for (auto it = tabs.cbegin(); it != tabs.cend(); ++it) {
        if (!isPrivateTab(it.key()))
            continue;
        const QString peer = it->peerNick.isEmpty() ? it.key() : it->peerNick;
        if (peer.compare(nick, Qt::CaseInsensitive) == 0)
            return it.key();
    }
    return QString();
}

void MainWindow::onTabChanged(int index)
{
    if (index < 0)
        return;
    if (!currentTabName.isEmpty())
        tabInputHistory.insert(currentTabName, inputLine->text());

    currentTabName = tabKey(index);
    auto it = tabs.find(currentTabName);
    m_session->markRead(currentTabName);
    m_session->setCurrentBuffer(currentTabName);
    if (it != tabs.end() && it->highlighted) {
        it->highlighted = false;
        tabBar->unhighlightTab(tabWidget->currentIndex());
    }

    const bool isChannel = isChannelTab(currentTabName);
    const bool isChat = isChannel || isPrivateTab(currentTabName);
    updateUserListVisibility(isChannel);
    emojiButton->setVisible(isChat);

    bottomStack->setCurrentIndex(currentTabName == ListTab ? 1 : 0);
    inputLine->setPlaceholderText(currentTabName == ServerTab ? QStringLiteral("Type a command...")
                                                              : QStringLiteral("Type a message..."));

    userList->clear();
    if (isChannel) {
        if (m_session->hasMembers(currentTabName))
            userList->fill(m_session->members(currentTabName));
        if (it != tabs.end() && it->topicBar) {
            it->topicBar->show();
            updateTopicLabel(currentTabName);
            updateTopicEditButton(currentTabName);
        }
    }

    updateNickCompletionModel();
    updateOwnUserAppearance();
    inputLine->setText(tabInputHistory.value(currentTabName));
    updateCloseButtons();
    QTimer::singleShot(0, this, &MainWindow::adjustSplitterToRatio);
}

void MainWindow::closeTab(int index)
{
    if (index < 0 || index >= tabWidget->count())
        return;
    const QString name = tabKey(index);
    if (name == ServerTab)
        return;
    if (name == ListTab) {
        channelListPage = nullptr;
        channelListWidget = nullptr;
        channelListModel = nullptr;
        listInfoLabel = nullptr;
    }
    // The session leaves the channel or stops watching the peer; the tab goes
    // when it reports the buffer closed.
    m_session->closeBuffer(name);
}

void MainWindow::onBufferClosed(const QString& name)
{
    const auto found = tabs.constFind(name);
    if (found == tabs.cend())
        return;
    const int index = tabWidget->indexOf(found->widget);
    // The tab bar keeps its blink marks by index: clear the marks from the
    // closed tab on and set them again on the tabs that moved down.
    for (int i = qMax(index, 0); index >= 0 && i < tabWidget->count(); ++i)
        tabBar->unhighlightTab(i);
    QWidget* page = found->widget;
    if (index >= 0)
        tabWidget->removeTab(index);
    if (page)
        page->deleteLater();
    for (int i = qMax(index, 0); index >= 0 && i < tabWidget->count(); ++i) {
        const QString key = tabKey(i);
        if (key != currentTabName && tabs.value(key).highlighted)
            tabBar->highlightTab(i);
    }
    tabs.remove(name);
    tabInputHistory.remove(name);

    if (currentTabName == name) {
        currentTabName.clear();
        updateUserListVisibility(false);
        emojiButton->hide();
        updateNickCompletionModel();
    }
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
    m_session->addLine(ServerTab, QStringLiteral("*** ") + text);
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

int MainWindow::addTabPage(QWidget* page, const QString& label)
{
    page->setProperty("tabKey", label);
    const int index = tabWidget->addTab(page, tabTitle(label));
    tabWidget->setTabToolTip(index, label);
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
    return index;
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
    const bool contained = m_session->autojoinChannels().contains(key);
    autojoinAction->setChecked(contained);

    QAction* chosen = menu.exec(tabBar->mapToGlobal(pos));
    if (chosen == closeAction)
        closeTab(index);
    else if (chosen == autojoinAction)
        m_session->setAutojoin(key, !contained);
}

void MainWindow::highlightTab(const QString& tabName)
{
    // Only a tab the user is not looking at is marked; switching to it clears the mark.
    auto it = tabs.find(tabName);
    if (it == tabs.end() || it->highlighted || tabName == currentTabName)
        return;
    const int index = tabWidget->indexOf(it->widget);
    if (index < 0)
        return;
    it->highlighted = true;
    tabBar->highlightTab(index);
}
