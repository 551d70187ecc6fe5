#pragma once

#include "shared/document/documentcardrecord.h"

#include <QString>

#include <memory>

/// The cards on the till's documents: table `documentcard` of the database that holds the queue.
/// Every operation throws BasicException when the database cannot be reached or refuses. Reached
/// through Singleton<DocumentsDao>. Thread: any; each call goes through the connection of the
/// calling thread.
class DocumentsDao
{
public:
    virtual ~DocumentsDao();

    /// Saves the fields that were set on `card` in the record of its id. An id that no record has
    /// is logged and changes nothing.
    virtual void updateCard(const DocumentCardRecord &card);
    /// The id of the latest record of that cheque and card, or 0.
    virtual int findCardId(const QString &chequeNumber, const QString &cardNumber);
    /// The record, or null when there is none. Its operation info is read when `withOperationInfo`
    /// is true.
    virtual std::shared_ptr<DocumentCardRecord> readCard(int id, bool withOperationInfo);
};
