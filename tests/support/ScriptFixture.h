#pragma once

// A server started by one of the fixture scripts beside this file
// (inspircd-fixture.sh, services/services-fixture.sh: InspIRCd linked to
// Anope; ngircd-fixture.sh): `script start` prints KEY=VALUE lines, `script
// stop DIR` stops everything and removes the folder (the value whose key ends
// in "_DIR"). The servers also go when the test process ends, however it ends.

#include <QCoreApplication>
#include <QMap>
#include <QProcess>
#include <QString>

class ScriptFixture
{
public:
    // script: a path relative to tests/support.
    explicit ScriptFixture(const QString& script)
        : m_script(QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/") + script)
    { }
    ~ScriptFixture() { stop(); }
    ScriptFixture(const ScriptFixture&) = delete;
    ScriptFixture& operator=(const ScriptFixture&) = delete;

    // Runs the script's start with extra environment; false (see
    // errorString()) when it failed or took longer than timeoutMs.
    bool start(const QProcessEnvironment& extra = QProcessEnvironment(), int timeoutMs = 60000)
    {
        stop();
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(extra);
        environment.insert("FIXTURE_OWNER_PID", QString::number(QCoreApplication::applicationPid()));
        process.setProcessEnvironment(environment);
        process.setStandardInputFile(QProcess::nullDevice());
        process.start("bash", { m_script, "start" });
        if (!process.waitForFinished(timeoutMs) || process.exitStatus() != QProcess::NormalExit
            || process.exitCode() != 0) {
            m_error = m_script + " start failed: " + QString::fromUtf8(process.readAllStandardError());
            return false;
        }
        for (const QString& line : QString::fromUtf8(process.readAllStandardOutput()).split('\n')) {
            const QString key = line.section('=', 0, 0);
            if (line.contains('=') && !key.isEmpty())
                m_values.insert(key, line.section('=', 1));
            if (key.endsWith("_DIR"))
                m_dir = line.section('=', 1);
        }
        return !m_dir.isEmpty();
    }
    void stop()
    {
        if (!m_dir.isEmpty())
            QProcess::execute("bash", { m_script, "stop", m_dir });
        m_dir.clear();
        m_values.clear();
    }

    QString value(const QString& key) const { return m_values.value(key); }
    quint16 port(const QString& key) const { return quint16(m_values.value(key).toUInt()); }
    QString errorString() const { return m_error; }

private:
    QString m_script;
    QMap<QString, QString> m_values;
    QString m_dir;
    QString m_error;
};
