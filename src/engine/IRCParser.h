#pragma once

#include <QString>

class IRCConnection;

// Turns one received protocol line into the connection's signals and performs
// the few automatic replies (PONG, NAMES after our own JOIN) and state changes
// (registration, LIST counters, nickname retry) that belong to the engine.
// Keeps no state of its own.
class IRCParser
{
public:
    static void parseLine(const QString& line, IRCConnection* connection);
};
