#include "ScriptFixture.h"

#include <QCoreApplication>
#include <QProcess>

ScriptFixture::ScriptFixture(const QString& script)
    : m_script(QStringLiteral(QUENVAR_TEST_SUPPORT_DIR "/") + script)
{
}

ScriptFixture::~ScriptFixture()
{
    stop();
}

bool ScriptFixture::start(const QProcessEnvironment& extra, int timeoutMs)
{
    stop();
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(extra);
    // The servers go with this process, however it ends.
    environment.insert(QStringLiteral("FIXTURE_OWNER_PID"), QString::number(QCoreApplication::applicationPid()));
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(QStringLiteral("bash"), { m_script, QStringLiteral("start") });
    if (!process.waitForFinished(timeoutMs) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        process.kill();
        process.waitForFinished(1000);
        m_error = QStringLiteral("%1 start failed: %2").arg(m_script, QString::fromUtf8(process.readAllStandardError()));
        return false;
    }
    const QStringList lines = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        m_values.insert(line.left(eq), line.mid(eq + 1));
        if (line.left(eq).endsWith(QLatin1String("_DIR")))
            m_dir = line.mid(eq + 1);
    }
    return !m_dir.isEmpty();
}

void ScriptFixture::stop()
{
    if (m_dir.isEmpty())
        return;
    QProcess::execute(QStringLiteral("bash"), { m_script, QStringLiteral("stop"), m_dir });
    m_dir.clear();
    m_values.clear();
}
