#include "FindBar.h"

#include "ChatView.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>

FindBar::FindBar(ChatView* view, QWidget* focusAfter, QWidget* parent)
    : QWidget(parent)
    , m_view(view)
    , m_focusAfter(focusAfter)
    , m_edit(new QLineEdit(this))
    , m_count(new QLabel(this))
{
    setObjectName(QStringLiteral("findBar"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(4);
    m_edit->setObjectName(QStringLiteral("findEdit"));
    m_edit->setPlaceholderText(tr("Find in this conversation"));
    m_edit->setClearButtonEnabled(true);
    m_edit->installEventFilter(this);
    m_count->setObjectName(QStringLiteral("findCount"));
    m_count->setTextFormat(Qt::PlainText);
    layout->addWidget(m_edit, 1);
    layout->addWidget(m_count);

    const auto button = [this, layout](const QString& text, const QString& tip) {
        auto* b = new QToolButton(this);
        b->setText(text);
        b->setToolTip(tip);
        b->setAutoRaise(true);
        layout->addWidget(b);
        return b;
    };
    connect(button(QStringLiteral("\u25B2"), tr("Older match (Enter)")), &QToolButton::clicked, this,
        [this] { m_view->findNext(true); updateCount(); });
    connect(button(QStringLiteral("\u25BC"), tr("Newer match (Shift+Enter)")), &QToolButton::clicked, this,
        [this] { m_view->findNext(false); updateCount(); });
    connect(button(QStringLiteral("\u2715"), tr("Close (Escape)")), &QToolButton::clicked, this, &FindBar::dismiss);

    connect(m_edit, &QLineEdit::textChanged, this, &FindBar::search);
    connect(m_view, &ChatView::matchesChanged, this, &FindBar::updateCount);
    hide();
}

QString FindBar::text() const
{
    return m_edit->text();
}

void FindBar::open()
{
    show();
    m_edit->setFocus();
    m_edit->selectAll();
    search();
}

void FindBar::dismiss()
{
    hide();
    m_view->find(QString());
    if (m_focusAfter)
        m_focusAfter->setFocus();
}

void FindBar::search()
{
    m_view->find(m_edit->text());
    updateCount();
}

void FindBar::updateCount()
{
    if (m_edit->text().isEmpty())
        m_count->clear();
    else if (m_view->matchCount() == 0)
        m_count->setText(tr("No matches"));
    else
        m_count->setText(tr("%1 of %2").arg(m_view->currentMatchNumber()).arg(m_view->matchCount()));
}

bool FindBar::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_edit && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Escape) {
            dismiss();
            return true;
        }
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            m_view->findNext(!(key->modifiers() & Qt::ShiftModifier));
            updateCount();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
