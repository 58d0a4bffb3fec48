#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

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
//   never produce a usage text. Extra arguments are ignored;
// - a command that acts on a channel and is not given one uses the current
//   tab, which then has to be a channel: elsewhere it is refused with a
//   Feedback row ("*** /kick works in a channel tab.").
class InputCommand
{
public:
    enum class Type
    {
        Empty, // nothing to do (blank line)
        Message, // chat text: send `text` to `target` (the current tab) and echo it there
        Join, // join the channels `target` ("#a,#b") with the keys `text`, if any
        Part, // leave channel `target` with the reason `text`
        Nick, // change the nick to `target` (ending an away state first)
        Msg, // send `text` to `target` and echo it in the tab `target`, creating it if missing
        Raw, // send `text` to the server exactly as it is
        List, // fetch the channel list (only once registration is complete)
        Away, // mark away with the reason `text`
        Back, // end the away state (sent even when not away)
        Whois, // ask the server about nick `target`; the result goes to the current tab
        Autojoin, // toggle channel `target` in the autojoin list
        Feedback, // send nothing; show `text` in the tab `target` with an empty sender
        Action, // "/me": send the action `text` to `target` (the current tab)
        Notice, // send the notice `text` to `target`
        Ctcp, // send the CTCP request `text` ("VERSION", "PING 123") to `target`
        ShowTopic, // show the topic of channel `target` in the current tab
        SetTopic, // set the topic of channel `target` to `text`
        Kick, // kick the nick args[0] from channel `target` with the reason `text`
        Ban, // ban the nick args[0] from channel `target` (nick!*@*)
        Mode, // one MODE line to `target` per entry of `args` (an entry may be empty)
        Invite, // invite the nick args[0] to channel `target`
        Who, // WHO `target`
        Query, // open the private tab of `target` (or switch to it), then send `text` if any
        Close, // close the tab `target` (the current one) as its close button does
        Clear, // forget the rows of the tab `target` (the current one)
        Quit, // leave the server with the reason `text`
        Help, // `text` empty: open the Help box; else show `text` in the current tab
        Unknown, // like Feedback, and the typed line stays in the input line to be fixed
    };

    // What the line asks for.
    Type type = Type::Empty;

    // The command word after lower-casing and alias mapping ("join" for "/J").
    // For Unknown it is the name reported (it may be empty, for a line that is
    // only "/"). Empty for Empty, Message and the refusal of chat text on the
    // server tab.
    QString name;

    // Message, Action, Close, Clear: the current tab.
    // Join: the channels, each with "#" put in front when it had none.
    // Autojoin: the channel, with "#" put in front when it had none.
    // Part, ShowTopic, SetTopic, Kick, Ban, Invite: the channel given, else
    // the current tab. Mode: the target given, else the current tab.
    // Nick: the new nick. Msg, Notice, Ctcp, Query: the recipient. Whois: the
    // nick asked about. Who: the mask. Help: the command asked about.
    // Feedback, Unknown: the tab the row goes to (the current tab, "Server"
    // for chat text typed on the server tab).
    // Empty for the other types.
    QString target;

    // Message, Msg: the message text. Msg takes the body from its third
    // section on, sections being separated by single spaces with empty ones
    // counted, so the text starts right after the body's second space.
    // Raw: everything after the body's first space, untouched.
    // Away: the reason after the command word, trimmed, or "Away" when none.
    // Action, Notice, SetTopic, Query: the text after the words before it
    // (the spaces right after them skipped, those inside kept).
    // Join: the keys, if given. Part: the reason, or "Leaving". Kick: the
    // reason, or "Requested". Quit: the reason, or "Quenvar leaving".
    // Ctcp: the command word, upper-cased, and its arguments.
    // Help: the Help line of the command asked about (a note when it has
    // none); empty for a plain "/help".
    // Feedback, Unknown: the row to show.
    // Empty for the other types.
    QString text;

    // Kick, Ban, Invite: the nick. Mode: the mode strings with their
    // parameters, one per MODE line ("/op a b c d": "+ooo a b c", "+o d").
    QStringList args;

    // Reads one submitted line. `currentTab` is the key of the current tab
    // ("Server", a channel, a nick, "List"); `channelTypes` are the first
    // characters of a channel name on this network.
    static InputCommand parse(
        const QString& line, const QString& currentTab, const QString& channelTypes = QStringLiteral("#"));

    // The command aliases, alias to command ("j" -> "join", "wc" -> "whois",
    // "raw" -> "raw", ...). Built once, on first use.
    static const QMap<QString, QString>& commandAliases();

    // `name` with "#" put in front unless it already starts with "#".
    static QString channelName(const QString& name, const QString& channelTypes = QStringLiteral("#"));

    // One line of Help: how a command is typed and what it does.
    struct HelpRow
    {
        QString usage; // "/kick nick [reason]"
        QString description;
    };
    // Every command, in the order Help lists them.
    static const QList<HelpRow>& helpRows();
    // The Help line of `command` (a name or an alias, with or without its
    // "/") as one row, or an empty string when there is no such command.
    static QString helpLine(const QString& command);
};
