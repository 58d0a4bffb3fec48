#include "CommandLine.h"

#include "AppSetup.h"
#include "ServerStore.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QStringList>

#include <cstdio>

namespace CommandLine {

namespace {

const QString ConfigDirOption = QStringLiteral("config-dir");
const QString ConnectOption = QStringLiteral("connect");

void describe(QCommandLineParser& parser)
{
    parser.setApplicationDescription(QStringLiteral("A desktop IRC client."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({ ConfigDirOption,
        QStringLiteral("Keep the settings in <dir> (as <dir>/Quenvar/Quenvar.conf) instead of the user's "
                       "settings folder. The folder is made when it does not exist."),
        QStringLiteral("dir") });
    parser.addOption({ ConnectOption,
        QStringLiteral("Connect to <host:port> at start with the server's stored nickname and channels. "
                       "When none is stored, the connect dialog opens on that server."),
        QStringLiteral("host:port") });
}

QStringList argumentsOf(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

} // namespace

int answerWithoutWindow(int& argc, char** argv)
{
    QCommandLineParser parser;
    describe(parser);
    // Qt's own options (-platform and the like) are unknown here; the full
    // check comes once the application object has taken them.
    parser.parse(argumentsOf(argc, argv));
    const bool help = parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("help-all"));
    if (!help && !parser.isSet(QStringLiteral("version")))
        return -1;
    QCoreApplication app(argc, argv);
    AppSetup::configureApplication();
    const QString text = help ? parser.helpText()
                              : QCoreApplication::applicationName() + QLatin1Char(' ')
            + QCoreApplication::applicationVersion() + QLatin1Char('\n');
    std::fputs(qPrintable(text), stdout);
    return 0;
}

bool parse(const QStringList& arguments, Options* options, QString* error)
{
    QCommandLineParser parser;
    describe(parser);
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("Unexpected argument: %1").arg(parser.positionalArguments().constFirst());
        return false;
    }
    if (parser.isSet(ConfigDirOption)) {
        const QString dir = parser.value(ConfigDirOption);
        if (dir.isEmpty()) {
            *error = QStringLiteral("--config-dir needs a folder");
            return false;
        }
        options->configDir = QDir(dir).absolutePath();
    }
    if (parser.isSet(ConnectOption)) {
        const QString address = parser.value(ConnectOption).trimmed();
        QString host;
        int port = 0;
        if (!ServerStore::splitAddress(address, &host, &port) || host.isEmpty() || port < 1 || port > 65535) {
            *error = QStringLiteral("--connect wants host:port with a port from 1 to 65535, not \"%1\"")
                         .arg(address);
            return false;
        }
        options->connectHost = host;
        options->connectPort = quint16(port);
    }
    return true;
}

} // namespace CommandLine
