/*
 * Texts that leave the product, kept whole: tests/golden/NAME.golden holds the bytes, without a line end. Written by
 * hand, never from what a program printed.
 */
#ifndef TESTS_SUPPORT_GOLDEN_H
#define TESTS_SUPPORT_GOLDEN_H

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

inline std::string Golden(const std::string& name)
{
    std::string   path = DKPF_GOLDEN_DIR + name + ".golden";
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        ADD_FAILURE() << path << " cannot be read";
    }
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

#endif
