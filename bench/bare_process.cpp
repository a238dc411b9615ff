/* The floor for memory: log4cpp configured from a property file, and two threads that sleep.
 * Usage: bare_process FILE */
#include <log4cpp/Category.hh>
#include <log4cpp/PropertyConfigurator.hh>
#include <thread>
#include <unistd.h>

static void sleep_for_ever()
{
    for (;;)
        pause();
}

int main(int argc, char **argv)
{
    if (argc != 2) return 2;
    log4cpp::PropertyConfigurator::configure(argv[1]);
    log4cpp::Category::getInstance("CATEGORY").log(log4cpp::Priority::INFO, "%s", "started");
    std::thread(sleep_for_ever).detach();
    std::thread(sleep_for_ever).detach();
    sleep_for_ever();
}
