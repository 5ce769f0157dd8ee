/// The folders where a memory card of the keypad is or was mounted.
#ifndef BENCH_KEYPAD_CARDSLOT_H
#define BENCH_KEYPAD_CARDSLOT_H

#include "bench/keypad/flawedcard.h"
#include "bench/keypad/hostprotocol.h"

#include <QMap>
#include <QSet>
#include <QSharedPointer>
#include <QStringList>

class CardSlot
{
public:
    /// Makes the folder behave as @p kind says. @return empty, or the reason in one line
    QString setCard(const QString &dir, HostProtocol::CardKind::Card kind);
    /// Folders where a card is mounted.
    QStringList folders() const { return m_cards.values() + m_flawedCards.keys(); }
    /// Cards that this process has to serve.
    QList<QSharedPointer<FlawedCard>> flawedCards() const { return m_flawedCards.values(); }

private:
    QString setPlainCard(const QString &dir, HostProtocol::CardKind::Card kind);
    QString setFlawedCard(const QString &dir);

    QMap<QString, QSharedPointer<FlawedCard>> m_flawedCards; ///< by folder
    QSet<QString> m_cards;                                   ///< folders with a card's tmpfs
};

#endif
