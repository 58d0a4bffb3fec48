#pragma once

// A server started by one of the fixture scripts beside this file
// (services/services-fixture.sh: InspIRCd linked to Anope; ngircd-fixture.sh):
// `script start` prints KEY=VALUE lines, `script stop DIR` stops everything
// and removes the folder (the value whose key ends in "_DIR").

#include <QMap>
#include <QProcessEnvironment>
#include <QString>

class ScriptFixture
{
public:
    // script: a path relative to tests/support.
    explicit ScriptFixture(const QString& script);
    ~ScriptFixture();
    ScriptFixture(const ScriptFixture&) = delete;
    ScriptFixture& operator=(const ScriptFixture&) = delete;

    // Runs the script's start with extra environment; false (see
    // errorString()) when it failed or took longer than timeoutMs.
    bool start(const QProcessEnvironment& extra = QProcessEnvironment(), int timeoutMs = 60000);
    void stop();

    QString value(const QString& key) const { return m_values.value(key); }
    quint16 port(const QString& key) const { return quint16(m_values.value(key).toUInt()); }
    QString errorString() const { return m_error; }

private:
    QString m_script;
    QMap<QString, QString> m_values;
    QString m_dir;
    QString m_error;
};
