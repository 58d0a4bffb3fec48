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
    void parserWithoutSocket();
    void parserListCounters();
    void parserJoinAfterOwnNickChange();
    void parserSignalArgumentTypes();
    void randomInputIsHandledSafely();

    // Connection (ConnectionTests.cpp)
    void initialState();
    void registrationBytes();
    void commandBytes_data();
    void commandBytes();
    void sendRawEncodesUtf8AndEndsEachLine();
    void seamsForTestsAndFuzzing();
    void reentrantDelivery();
    void sendWhileDisconnected();
    void nickCandidates_data();
    void nickCandidates();
    void nickInUseFallsBackThroughServer();
    void tryNextNickToExhaustion();
    void ownNickTracking();
    void framing_data();
    void framing();
    void oversizeLine_data();
    void oversizeLine();
    void serverPingAnsweredOverTheWire();
    void disconnectSendsQuit();
    void remoteCloseReportsAndStops();
    void connectionRefused();
    void disconnectWhileConnecting();
    void reconnectResetsState();
    void reconnectFromSlotStopsOldBuffer();
    void tcpKeepAliveOptions();
    void tlsNeverSendsInClear();

    // Keep-alive and power (KeepAliveTests.cpp)
    void keepAliveDefaults();
    void pingOnlyAfterMoreThanIdleTime();
    void pingTimeoutAfterMoreThan45s();
    void receivedDataClearsPendingPing_data();
    void receivedDataClearsPendingPing();
    void firstPingWithinTickWindow_data();
    void firstPingWithinTickWindow();
    void keepAliveTimerDrivesCheck();
    void keepAliveIdleWhenDisconnected();
    void sleepInhibitedOnceReleasedOnce();
    void sleepReleasedWhenServerCloses();
    void platformPowerBookkeeping();
    void sleepLockThroughLoginManager();

private:
    FakeLoginManager* m_loginManager = nullptr;
    QString m_noLoginManager;
};
