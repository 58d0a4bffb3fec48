#pragma once

#include <QString>
#include <QStringList>

// One received protocol line, cut and typed. Which fields a kind fills:
//
//   Ping           text: the token to echo
//   Privmsg        source, target (channel or our nick, as sent), text
//   Notice         source (null for a notice without prefix), target, text,
//                  args: { user@host } when a user or service sent it
//   Join           source, target: the channel, text: user@host of the source
//   Part           source, target: the channel, text: the reason
//   Quit           source, text: the reason
//   Kick           source: the kicker, target: the channel, args: { kicked nick }, text: the reason
//   Nick           source: the old nick, target: the new one
//   Names          target: the channel, args: the names
//   NamesEnd       target: the channel
//   ListStart      source: the whole prefix (the server's name)
//   ListChannel    target: the channel, args: { user count as sent }, number: that count (0
//                  when it is no number), text: the topic
//   Topic          target: the channel, text: the topic
//   WhoisUser      target: the nick, args: { user, host }, text: the real name
//   WhoisServer    target: the nick, args: { server }, text: the server's description
//   WhoisOperator  target: the nick
//   WhoisIdle      target: the nick, number: idle seconds, text: the sign-on time (local
//                  ISO date-time, or the trailing text when the reply has no usable one)
//   WhoisChannels  target: the nick, text: the channels
//   WhoisEnd       target: the nick; null when the reply names none
//   WhoisAway      target: the nick, text: the away message
//   WatchOnline    target: the nick
//   WatchOffline   target: the nick
//   NickInUse      number: 432 (erroneous) or 433 (in use), target: the refused nick,
//                  text: the server's reason
//   ServerText     text: the whole line, trimmed (the received string itself when there was
//                  nothing to trim), number: the numeric (0 for another command)
//   Welcome        target: our nick as the server registered it
//   Cap            target: the subcommand in upper case (LS, ACK, NAK, NEW, DEL, LIST),
//                  args: the capabilities, number: 1 when more lines of the reply follow
//   Authenticate   text: the server's part of a SASL exchange ("+" for an empty one)
//   Isupport       args: the tokens of a 005 reply, text: the whole line
//   Sasl           number: 902-907 (903 success, the others failure), text: the reason
//   TopicChange    source, target: the channel, text: the new topic (empty: cleared)
//   Mode           source, target: channel or nick, args: the mode string and its parameters
//   Invite         source, target: the invited nick, text: the channel
//   Away           source, text: the away message; null when they are back
//   Account        source, target: the account ("*" when logged out)
//   Chghost        source, args: { new user, new host }
//   ErrorReply     number: the numeric, args: the parameters after our nick, text: the reason
//   MonitorOnline  args: the nicks that are online (730)
//   MonitorOffline args: the nicks that are offline (731)
//   Ctcp           source, target, args: { command in upper case }, text: its parameters
//                  (a PRIVMSG wrapped in \x01; ACTION is one)
//   CtcpReply      source, target, args: { command }, text: the reply (the same in a NOTICE)
//   Error          text: why the server closes the link (ERROR)
//
// Any kind: time is the server's time of the message (server-time tag), in
// milliseconds since the epoch, or 0 when the line has none.
//
// Pong, ListEnd, Welcome and Ignored carry nothing. Ignored is what needs no
// reaction at all: blank lines, a prefix alone, named commands with no
// meaning here, WATCH list replies, and commands or replies without the
// parameters they need (a NICK without a nick, a JOIN without a channel).
// Strings a line does not hold are null.
struct IrcMessage
{
    enum class Kind : unsigned char
    {
        Ignored,
        Ping,
        Pong,
        Privmsg,
        Notice,
        Join,
        Part,
        Quit,
        Kick,
        Nick,
        Names, // 353
        NamesEnd, // 366
        ListStart, // 321
        ListChannel, // 322
        ListEnd, // 323
        Topic, // 332
        NickInUse, // 432, 433
        Welcome, // 001
        WhoisUser, // 311
        WhoisServer, // 312
        WhoisOperator, // 313
        WhoisIdle, // 317
        WhoisChannels, // 319
        WhoisEnd, // 318
        WhoisAway, // 301
        WatchOnline, // 600, 604
        WatchOffline, // 601, 605
        ServerText, // any other numeric, or command starting with a digit
        Cap,
        Authenticate,
        Isupport, // 005
        Sasl, // 902-907
        TopicChange,
        Mode,
        Invite,
        Away,
        Account,
        Chghost,
        ErrorReply, // 400-599 that concern a nick, channel or command
        MonitorOnline, // 730
        MonitorOffline, // 731
        Ctcp,
        CtcpReply,
        Error,
    };

    Kind kind = Kind::Ignored;
    int number = 0;
    qint64 time = 0;
    QString source;
    QString target;
    QString text;
    QStringList args;
};

// Turns one received protocol line into an IrcMessage. Keeps no state and
// knows no connection: what to do about the message is IRCConnection's.
class IRCParser
{
public:
    static IrcMessage parse(const QString& line);
};
