#pragma once

#include <QtGlobal>

/// glibc keeps the many small blocks of a large document after they are freed. The code that builds
/// such a document notes its size in bytes; the worker returns the memory to the system after the
/// delivery.
/// Thread: any; each thread has its own note.
void noteLargeDocument(qsizetype bytes);
/// Returns free memory to the system if a large document was noted since the last call.
void returnLargeDocuments();
