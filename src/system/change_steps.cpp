#include "system/change_steps.h"

#include <atomic>

namespace ChangeSteps {

namespace {

std::atomic<Observer> currentObserver { nullptr };

} // namespace

void setObserver(Observer observer)
{
    currentObserver.store(observer);
}

void passed(const char *step)
{
    if (const Observer observer = currentObserver.load())
        observer(step);
}

} // namespace ChangeSteps
