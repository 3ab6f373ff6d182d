#include <stdio.h>
#include <sys/inotify.h>
#include <torvane.h>

int main(void) {
    FileMonitor *monitor = monitor_directory("/etc");
    if (monitor == NULL) return 1;
    /* Standard input ends the wait as soon as there is something to
       read, or its end. */
    struct inotify_event *event = wait_for_event(monitor, 0);
    if (event != NULL) {
        const Watch *watch = get_watch(monitor, event->wd);
        printf("%s/%s\n", watch != NULL ? watch->path : "?",
               event->len > 0 ? event->name : "");
    }
    release_event(event);
    release_monitor(monitor);
    return 0;
}
