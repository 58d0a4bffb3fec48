#pragma once

#include <QMap>
#include <QString>

// What one submitted input line asks for, worked out without touching the
// connection or any widget. MainWindow::onSendInput parses the line with
// parse() and then carries out the result: it drops the line when it is not
// connected, sends, echoes and prints.
//
// How a line is read:
// - surrounding white space is removed; an empty line is Type::Empty;
// - a line not starting with "/" is chat text for the current tab;
// - otherwise the body (the line without its "/") is split at single spaces,
//   empty pieces dropped; the first piece, lower-cased and put through
//   commandAliases(), names the command, the further pieces are its
//   arguments. A command given too few arguments is reported as unknown under
//   its mapped name ("/J" alone: "Unknown command: join"); missing arguments
//   never produce a usage text. Extra arguments are ignored.
class InputCommand
{
public:
    enum class Type
    {
        Empty, // nothing to do (blank line)
        Message, // chat text: send `text` to `target` (the current tab) and echo it there
        Join, // join channel `target`
        Part, // leave `target`, the current tab, whatever kind of tab it is
        Nick, // change the nick to `target` (ending an away state first)
        Msg, // send `text` to `target` and echo it in the tab `target`, creating it if missing
        Raw, // send `text` to the server exactly as it is
        List, // fetch the channel list (only once registration is complete)
        Away, // mark away with the reason `text`
        Back, // end the away state (sent even when not away)
        Whois, // ask the server about nick `target`; the result goes to the current tab
        Autojoin, // toggle channel `target` in the autojoin list
        Feedback, // send nothing; show `text` in the tab `target` with an empty sender
    };

    // What the line asks for.
    Type type = Type::Empty;

    // The command word after lower-casing and alias mapping ("join" for "/J").
    // For Feedback caused by an unknown command it is the name reported (it may
    // be empty, for a line that is only "/"). Empty for Empty, Message and the
    // refusal of chat text on the server tab.
    QString name;

    // Message, Part: the current tab.
    // Join, Autojoin: the channel, with "#" put in front when it had none.
    // Nick: the new nick. Msg: the recipient. Whois: the nick asked about.
    // Feedback: the tab the row goes to (the current tab for an unknown
    // command, "Server" for chat text typed on the server tab).
    // Empty for the other types.
    QString target;

    // Message, Msg: the message text. Msg takes the body from its third
    // section on, sections being separated by single spaces with empty ones
    // counted, so the text starts right after the body's second space.
    // Raw: everything after the body's first space, untouched.
    // Away: the reason after the command word, trimmed, or "Away" when none.
    // Feedback: the row to show.
    // Empty for the other types.
    QString text;

    // Reads one submitted line. `currentTab` is the key of the current tab
    // ("Server", a channel, a nick, "List").
    static InputCommand parse(const QString& line, const QString& currentTab);

    // The command aliases, alias to command ("j" -> "join", "wc" -> "whois",
    // "raw" -> "raw", ...). Built once, on first use.
    static const QMap<QString, QString>& commandAliases();

    // `name` with "#" put in front unless it already starts with "#".
    static QString channelName(const QString& name);
};
