#pragma once

#include <QString>

// The program's command line: --help, --version, --config-dir DIR and
// --connect HOST:PORT, besides the options Qt itself takes (-platform ...).
namespace CommandLine {

struct Options
{
    // The folder that takes the place of the user's settings folder; empty:
    // the usual per-user store.
    QString configDir;
    // The server to connect to at start; empty host: none.
    QString connectHost;
    quint16 connectPort = 0;
};

// --help and --version need no display: asked for, they are answered on
// standard output before any window system is touched. Returns the exit code
// of such a run, or -1 when the program is to start as usual.
int answerWithoutWindow(int& argc, char** argv);

// Reads the arguments the application object left after taking Qt's own.
// False, with `error` telling why, for an unknown option or a value that
// cannot be used.
bool parse(const QStringList& arguments, Options* options, QString* error);

} // namespace CommandLine
