/* The operating system behind its header. */
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/platform.h"

TEST(platform_environment, never_passes_the_buffer)
{
    char buffer[6];
    std::memset(buffer, 'z', sizeof buffer);
    ASSERT_EQ(setenv("WKL_TEST_VALUE", "1234", 1), 0);
    EXPECT_EQ(platform_environment("WKL_TEST_VALUE", buffer, 5), 4);
    EXPECT_STREQ(buffer, "1234");
    EXPECT_EQ(platform_environment("WKL_TEST_VALUE", buffer, 4), 4) << "the length is told, the value is not";
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(buffer[5], 'z');
    ASSERT_EQ(unsetenv("WKL_TEST_VALUE"), 0);
    EXPECT_EQ(platform_environment("WKL_TEST_VALUE", buffer, 5), -1);
}

TEST(platform_threads, slots_and_identifiers_belong_to_one_thread)
{
    const int32_t slot = platform_thread_slot_create();
    ASSERT_GE(slot, 0);
    platform_thread_slot_set(slot, 41);
    uint64_t other = 0;
    std::thread([&] {
        EXPECT_EQ(platform_thread_slot_get(slot), 0);
        platform_thread_slot_set(slot, 7);
        other = platform_thread_id();
    }).join();
    EXPECT_EQ(platform_thread_slot_get(slot), 41);
    EXPECT_NE(other, platform_thread_id());
    EXPECT_NE(other, 0u);
}

TEST(platform_affinity, pinning_gives_the_mask_back)
{
    uint64_t process = 0, system = 0;
    ASSERT_TRUE(platform_affinity(&process, &system));
    EXPECT_EQ(process & ~system, 0u) << "a process has no processor that the system lacks";
    const uint64_t one = process & (0 - process);
    std::thread([&] {
        const uint64_t before = platform_pin_thread(one);
        EXPECT_EQ(before, process);
        EXPECT_EQ(platform_pin_thread(before), one);
        EXPECT_EQ(platform_pin_thread(0), 0u) << "no processor at all is refused";
    }).join();
}

struct platform_files : testing::Test {
    std::filesystem::path folder;
    void SetUp() override
    {
        char name[] = "/tmp/wkl_files_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
    }
    void TearDown() override
    {
        std::filesystem::remove_all(folder);
    }
};

TEST_F(platform_files, creation_is_exclusive_private_and_follows_no_link)
{
    const std::string path = folder / "pages", link = folder / "link", target = folder / "target";
    platform_file file = -1;
    ASSERT_EQ(platform_file_create(path.c_str(), &file), 0);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u & ~static_cast<unsigned>(umask(umask(0))));
    EXPECT_EQ(platform_file_close(file), 0);
    EXPECT_EQ(platform_file_create(path.c_str(), &file), EEXIST);
    std::filesystem::create_symlink(target, link);
    EXPECT_EQ(platform_file_create(link.c_str(), &file), EEXIST);
    EXPECT_FALSE(std::filesystem::exists(target));
    std::ofstream(target) << "precious";
    EXPECT_EQ(platform_file_open(link.c_str(), &file), ELOOP);
    EXPECT_EQ(platform_file_remove(path.c_str()), 0);
    EXPECT_EQ(platform_file_remove(path.c_str()), ENOENT);
    EXPECT_EQ(platform_file_open(path.c_str(), &file), ENOENT);
    EXPECT_EQ(platform_file_create((folder / "none" / "x").c_str(), &file), ENOENT);
}

TEST_F(platform_files, blocks_come_back_also_beyond_four_gigabytes)
{
    const std::string path = folder / "pages";
    platform_file file = -1;
    ASSERT_EQ(platform_file_create(path.c_str(), &file), 0);
    std::vector<int64_t> written(1000), read(1000);
    for (int64_t i = 0; i < 1000; ++i) written[static_cast<std::size_t>(i)] = i * i;
    const int64_t offset = int64_t{5} << 30; /* a hole before it takes no space */
    ASSERT_EQ(platform_file_write(file, offset, written.data(), 8000), 0);
    int64_t size = 0;
    ASSERT_EQ(platform_file_size(file, &size), 0);
    EXPECT_EQ(size, offset + 8000);
    ASSERT_EQ(platform_file_close(file), 0);
    ASSERT_EQ(platform_file_open(path.c_str(), &file), 0);
    ASSERT_EQ(platform_file_read(file, offset, read.data(), 8000), 0);
    EXPECT_EQ(read, written);
    EXPECT_EQ(platform_file_read(file, offset + 8, read.data(), 8000), EIO) << "a short file must not pass for a block";
    EXPECT_EQ(platform_file_read(file, -1, read.data(), 8), EINVAL);
    platform_file_go_direct(file); /* a range that is not of whole units goes the ordinary way, in the background as well */
    platform_transfer one, other;
    ASSERT_TRUE(platform_transfer_begin(&one, true, file, 16, written.data(), 8000));
    EXPECT_EQ(platform_transfer_wait(&one), 0);
    std::vector<int64_t> behind(1000);
    ASSERT_TRUE(platform_transfer_begin(&one, false, file, offset + 4096, behind.data(), 8000));
    read.assign(1000, 0);
    ASSERT_TRUE(platform_transfer_begin(&other, false, file, 16, read.data(), 8000));
    EXPECT_EQ(platform_transfer_wait(&other), 0);
    EXPECT_TRUE(platform_transfer_ended(&other));
    EXPECT_EQ(read, written);
    EXPECT_EQ(platform_transfer_wait(&one), EIO);
    ASSERT_EQ(platform_file_close(file), 0);
    EXPECT_EQ(platform_file_close(file), EBADF);
    EXPECT_EQ(platform_file_write(file, 0, written.data(), 8), EBADF);
}

TEST(platform_errors, words_are_cut_to_the_buffer)
{
    char words[8];
    platform_error_text(ENOENT, words, sizeof words);
    EXPECT_STREQ(words, "No such");
}

TEST(platform_messages, locale_numbers)
{
    const char *cases[][2] = {{"de_DE.UTF-8", "1031"}, {"de_AT", "3079"}, {"en_GB.UTF-8", "2057"},
                              {"C", "1033"},           {"xx", "1033"},    {"", "1033"}};
    for (const auto &[name, number] : cases) {
        ASSERT_EQ(setenv("LC_ALL", name, 1), 0);
        ASSERT_EQ(unsetenv("LANG"), 0);
        EXPECT_EQ(std::to_string(platform_locale_number()), number) << name;
    }
    EXPECT_EQ(platform_message_open("/nonexistent/wkl_msg.cat"), nullptr);
}
