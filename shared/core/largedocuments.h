#pragma once

#include <QtGlobal>

/// The C library keeps the many small blocks of a large document after they were freed. Who builds
/// one notes its size in bytes, and the worker has them given back when the delivery is over.
/// Thread: any; each has a note of its own.
void noteLargeDocument(qsizetype bytes);
/// Gives the memory back if a large document was noted since the last call.
void returnLargeDocuments();
