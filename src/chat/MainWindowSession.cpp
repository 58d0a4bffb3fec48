// MainWindow: the open networks (adding, closing, reopening at start, the
// labels of their tabs) and the connect actions of the menu.

#include "MainWindow.h"

#include "ConnectDialog.h"
#include "MyTabWidget.h"
#include "NetworkView.h"
#include "Session.h"

#include <QHash>
#include <QMessageBox>
#include <QSet>

namespace {

const QString ServerTab = QStringLiteral("Server");

} // namespace

NetworkView* MainWindow::addNetwork()
{
    auto* network = new NetworkView(this);
    m_networks.append(network);
    applyConnectionPreferences();
    updateTabLabels();
    return network;
}

void MainWindow::closeNetwork(NetworkView* network)
{
    const int at = int(m_networks.indexOf(network));
    if (at < 0 || m_networks.size() < 2
        || QMessageBox::question(this, QStringLiteral("Close network"),
               QStringLiteral("Leave %1 and close its tabs?").arg(network->name()), QMessageBox::Yes | QMessageBox::No)
            != QMessageBox::Yes)
        return;
    m_networks.removeAt(at);
    // A neighbour's server tab becomes current before this network's tabs go.
    if (network->isCurrent())
        m_networks.value(at, m_networks.last())->showTab(ServerTab);
    network->close();
    updateTabLabels();
    updateStatusBar();
}

void MainWindow::startNetworks()
{
    const QStringList ids = prefs.reopenNetworks ? NetworkView::storedOpenNetworks() : QStringList();
    if (ids.isEmpty()) {
        showConnectDialog();
        return;
    }
    for (const QString& id : ids)
        (id == ids.first() ? network() : addNetwork())->connectStored(id);
}

void MainWindow::updateTabLabels()
{
    const bool several = m_networks.size() > 1;
    // Names open on more than one network, case ignored.
    QHash<QString, const NetworkView*> owner;
    QSet<QString> shared;
    for (int i = 0; several && i < tabWidget->count(); ++i) {
        const NetworkView* network = NetworkView::of(tabWidget->widget(i));
        const QString name = tabKey(i).toCaseFolded();
        const auto it = owner.constFind(name);
        if (it == owner.cend())
            owner.insert(name, network);
        else if (*it != network)
            shared.insert(name);
    }
    for (int i = 0; i < tabWidget->count(); ++i) {
        const NetworkView* network = NetworkView::of(tabWidget->widget(i));
        const QString key = tabKey(i);
        QString label = key;
        if (several && network && key == ServerTab)
            label = network->name();
        else if (network && shared.contains(key.toCaseFolded()))
            label = QStringLiteral("%1 [%2]").arg(key, network->name());
        if (tabWidget->tabToolTip(i) != label) {
            tabWidget->setTabText(i, tabTitle(label));
            tabWidget->setTabToolTip(i, label);
        }
    }
}

// --- Connect, disconnect, reconnect ---------------------------------------------

void MainWindow::showConnectDialog()
{
    session()->rememberServerRecord();
    auto* dialog = new ConnectDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setCurrentTheme(currentTheme);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        // A network in use stays: the choice opens another one beside it.
        NetworkView* target = network();
        if (target->session()->isConnected() || target->session()->pendingReconnectAttempt() > 0) {
            target = addNetwork();
            target->showTab(ServerTab);
        }
        target->session()->connectTo(dialog->server(), quint16(dialog->port()), dialog->activeServerConfig());
    });
    dialog->show();
}

void MainWindow::onDisconnectTriggered()
{
    session()->disconnectFromServer();
}

void MainWindow::onReconnectTriggered()
{
    session()->reconnect();
}
