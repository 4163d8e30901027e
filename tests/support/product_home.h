/*
 * A home with the whole product in it, real libraries and a configuration of the case's own, and what processes of that
 * home leave there.
 */
#ifndef DKPF_TESTS_PRODUCT_HOME_H
#define DKPF_TESTS_PRODUCT_HOME_H

#include <map>
#include <string>
#include <vector>

#include "support/test_home.h"

class ProductHome : public TestHome {
public:
    ProductHome();

    /* Writes the configuration: by key below /root/diskperf, over what earlier calls gave. Collects and writes every
     * second unless told otherwise. */
    void Configure(const std::map<std::string, std::string>& settings = {});
    void BreakConfiguration();  // a file cut off in its line 4

    std::vector<std::string> Lines(const wchar_t* relative) const;  // whole lines; what has no CR LF is marked
    int                      Events(const char* id) const;          // entries of that number, "0xC00012C5"

private:
    std::map<std::string, std::string> values;
};

#endif
