#pragma once

#include <QObject>
#include <QString>

class FakeLoginManager;

// Unit tests of the protocol engine: the parser, the connection against an
// in-process server, the keep-alive check and the platform power calls.
class TestEngine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    // Parser (ParserTests.cpp)
    void parserDispatch_data();
    void parserDispatch();
    void parserMessage_data();
    void parserMessage();
    void parserListCounters();

    // Connection (ConnectionTests.cpp)
    void registrationBytes_data();
    void registrationBytes();
    void splitText_data();
    void splitText();
    void commandBytes_data();
    void commandBytes();
    void sendWithoutSocket();
    void reentrantDelivery();
    void nickCandidates_data();
    void nickCandidates();
    void nickInUseFallsBackThroughServer();
    void tryNextNickToExhaustion();
    void ownNickTracking();
    void framing_data();
    void framing();
    void oversizeLine_data();
    void oversizeLine();
    void disconnectSendsQuit();
    void remoteCloseReportsAndStops();
    void connectionNeverUp();
    void reconnectWithoutDisconnect();
    void reconnectFromSlotStopsOldBuffer();
    void tcpKeepAliveOptions();
    void tlsNeverSendsInClear();

    // Keep-alive and power (KeepAliveTests.cpp)
    void pingAfterIdleThenTimeout();
    void receivedDataClearsPendingPing_data();
    void receivedDataClearsPendingPing();
    void keepAliveTimerDrivesCheck();
    void sleepLockThroughLoginManager();

private:
    FakeLoginManager* m_loginManager = nullptr;
    QString m_noLoginManager;
};
