#pragma once

#include "support/crash_child_run.h"

#include <memory>

// One run of journal_crash_child.
ChildRun runChild(const QStringList &arguments, const QString &stepsPath);

// A machine an installation or a migration is killed on, and then recovered as the next
// installer run would recover it.
class CrashSubject
{
public:
    virtual ~CrashSubject() = default;
    virtual bool ready() const = 0;
    // Installs or migrates; "die at" 0 runs to the end, "cancel after" 0 never cancels.
    virtual ChildRun change(int dieAt, int cancelAfter) = 0;
    virtual ChildRun recover(int dieAt) = 0;
    // Out of an undisturbed run's steps: the commit, from which a crash must end new (0 when the
    // run is not shaped as expected), and where a cancel comes half way through the moves.
    virtual int commitStep(const QStringList &steps) const = 0;
    virtual int cancelStep(const QStringList &steps) const = 0;
    // Empty when the machine holds exactly the old or, with expectNew, the new state; otherwise
    // what is wrong.
    virtual QString verdict(bool expectNew) const = 0;
};

std::unique_ptr<CrashSubject> installationSubject(bool existing);
// The earlier layout's installation migrated into the new one.
std::unique_ptr<CrashSubject> migrationSubject();
