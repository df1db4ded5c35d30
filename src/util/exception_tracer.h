// Reports an exception that nothing catches.
#pragma once

class ExceptionTracer {
public:
    /// From now on an exception that nothing catches is reported on standard error with its type,
    /// its text and a backtrace, and the program aborts.
    static void enable();
};
