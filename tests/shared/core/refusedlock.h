#pragma once

/// What the system answers to the next lock of a file: an errno, or 0 for what it really answers.
/// A program that is built with refusedlock.cpp replaces the C library's fcntl() for this.
extern int lockError;
