#pragma once

#include "shared/document/documentcardrecord.h"

#include <QString>

#include <memory>

/// The cards on the till's documents: table `documentcard` of the queue's database. Every operation
/// throws BasicException when the database cannot be reached or reports an error. Reached through
/// Singleton<DocumentsDao>. Thread: any; each call uses the calling thread's connection.
class DocumentsDao
{
public:
    virtual ~DocumentsDao();

    /// Saves the fields that were set on `card` in the record with its id. An unknown id is logged
    /// and changes nothing.
    virtual void updateCard(const DocumentCardRecord &card);
    /// The id of the latest record of that cheque and card; 0 without one.
    virtual int findCardId(const QString &chequeNumber, const QString &cardNumber);
    /// The record; null if there is none. Its operation info is read only if `withOperationInfo` is
    /// true.
    virtual std::shared_ptr<DocumentCardRecord> readCard(int id, bool withOperationInfo);
};
