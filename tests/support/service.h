/*
 * A service of the prefix for one case: registered anew whatever an earlier case left, stopped and gone with the
 * object.
 */
#ifndef DKPF_TESTS_SERVICE_H
#define DKPF_TESTS_SERVICE_H

#include <windows.h>
#include <string>

/* Stops and deletes a service that an earlier case left, if there is one. */
void RemoveService(const char* serviceName);

class Service {
public:
    Service(const char* serviceName, DWORD serviceType, const std::string& commandLine);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    bool           Launch();  // does not wait
    bool           Start();   // waits until it runs
    bool           Stop();    // waits until it has stopped
    bool           Control(DWORD control);
    DWORD          State() const;
    SERVICE_STATUS Status() const;

private:
    const char* name;
    SC_HANDLE   manager = NULL;
    SC_HANDLE   handle = NULL;
};

#endif
