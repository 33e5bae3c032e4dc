#include "frontend/output/same_storage.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;

storage_id block_device(unsigned major, unsigned minor) {
    return {true, ::makedev(major, minor), 0};
}

storage_id file_at(const fs::path& path) {
    struct ::stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return {false, status.st_dev, status.st_ino};
}

// The kernel's directories and list of mounts, made of ordinary files. The numbers of the devices are those
// of drives, of which no machine has as many as these.
class kernel_tables : public testing::Test {
  protected:
    void SetUp() override {
        places = {dir / "numbers", dir / "mounts", dir / "nodes"};
        fs::create_directory(dir / "numbers");
        write("mounts", "");
    }
    void write(const std::string& name, const std::string& text) {
        fs::create_directories((dir / name).parent_path());
        write_file(dir / name, to_bytes(text));
    }
    // A directory of a device, below that of its drive if it is a partition.
    void add(const std::string& directory, const std::string& number) {
        write(directory + "/dev", number + "\n");
        fs::create_directory_symlink(dir / directory, dir / "numbers" / number);
    }
    void add_slave(const std::string& upper, const std::string& lower) {
        fs::create_directory(dir / upper / "slaves");
        fs::create_directory_symlink(dir / lower, dir / upper / "slaves" / fs::path(lower).filename());
    }
    [[nodiscard]] storage_set below(unsigned major, unsigned minor) const {
        found_file device;
        device.exists = true;
        device.id = block_device(major, minor);
        storage_set set;
        add_storage(set, device, places);
        return set;
    }
    [[nodiscard]] storage_set below_file_system(unsigned major, unsigned minor,
                                                std::uint64_t mount = 0) const {
        storage_set set;
        add_storage_of_file_system(set, {::makedev(major, minor), mount}, places);
        return set;
    }
    temp_dir dir;
    kernel_places places;
};

TEST_F(kernel_tables, say_which_drive_a_partition_is_part_of) {
    add("sdx", "8:4000");
    add("sdx/sdx1", "8:4001");
    write("sdx/sdx1/partition", "1\n");
    EXPECT_EQ(below(8, 4001), (storage_set{block_device(8, 4001), block_device(8, 4000)}));
    EXPECT_EQ(below(8, 4000), storage_set{block_device(8, 4000)});
}

TEST_F(kernel_tables, say_what_a_mapped_volume_is_made_of_at_any_depth) {
    add("dm-1", "253:4001");
    add("dm-0", "253:4000");
    add("sdx", "8:4000");
    add("sdx/sdx1", "8:4001");
    write("sdx/sdx1/partition", "1\n");
    add_slave("dm-1", "dm-0");
    add_slave("dm-0", "sdx/sdx1");
    EXPECT_EQ(below(253, 4001), (storage_set{block_device(253, 4001), block_device(253, 4000),
                                             block_device(8, 4001), block_device(8, 4000)}));
}

TEST_F(kernel_tables, that_go_round_in_a_circle_end) {
    add("dm-1", "253:4001");
    add("dm-0", "253:4000");
    add_slave("dm-1", "dm-0");
    add_slave("dm-0", "dm-1");
    EXPECT_EQ(below(253, 4000), (storage_set{block_device(253, 4001), block_device(253, 4000)}));
}

TEST_F(kernel_tables, name_the_file_after_a_loop_device_and_after_a_partition_of_one) {
    write("disk", "image");
    add("loop900", "7:4000");
    write("loop900/loop/backing_file", (dir / "disk").string() + "\n");
    add("loop900/loop900p1", "259:4001");
    write("loop900/loop900p1/partition", "1\n");
    EXPECT_EQ(below(7, 4000), (storage_set{block_device(7, 4000), file_at(dir / "disk")}));
    EXPECT_EQ(below(259, 4001),
              (storage_set{block_device(259, 4001), block_device(7, 4000), file_at(dir / "disk")}));
}

TEST_F(kernel_tables, without_a_word_about_a_device_leave_it_as_it_is) {
    EXPECT_EQ(below(8, 4000), storage_set{block_device(8, 4000)});
    add("sdx", "8:4000");
    write("sdx/partition", "1\n");
    write("dev", "no number\n");
    EXPECT_EQ(below(8, 4000), storage_set{block_device(8, 4000)});
}

TEST_F(kernel_tables, lead_from_a_file_system_to_its_device_and_all_below) {
    write("disk", "image");
    add("loop900", "7:4000");
    write("loop900/loop/backing_file", (dir / "disk").string() + "\n");
    const storage_set set = below_file_system(7, 4000);
    EXPECT_TRUE(set.contains(block_device(7, 4000)));
    EXPECT_TRUE(set.contains(file_at(dir / "disk")));
}

// The backing file of the device lies on a file system of its own, which is written too.
TEST_F(kernel_tables, lead_on_from_the_file_after_a_device_to_the_file_system_that_holds_it) {
    write("disk", "image");
    add("loop900", "7:4000");
    write("loop900/loop/backing_file", (dir / "disk").string() + "\n");
    const ::dev_t holder = file_at(dir / "disk").device;
    add("sdx", "8:4000");
    write("node", "no device");
    write("mounts", "20 1 " + std::to_string(::major(holder)) + ":" + std::to_string(::minor(holder)) +
                        " / / rw shared:1 - tmpfs " + (dir / "node").string() + " rw\n");
    const storage_set set = below_file_system(7, 4000);
    EXPECT_TRUE(set.contains(file_at(dir / "node"))) << "what the list of mounts gives as its source";
}

// As a program in user space mounts an image.
TEST_F(kernel_tables, lead_from_a_mount_without_a_device_to_the_file_that_it_names_as_its_source) {
    write("disk image", "image");
    std::string source = (dir / "disk image").string();
    source.replace(source.find(' '), 1, "\\040");
    write("mounts",
          "30 1 0:40 / /other rw - tmpfs none rw\n31 1 0:4000 / /mnt rw,noatime shared:7 master:1 - "
          "fuse " +
              source + " rw,user_id=0\n");
    EXPECT_TRUE(below_file_system(0, 4000).contains(file_at(dir / "disk image")));
    EXPECT_TRUE(below_file_system(0, 4001, 31).contains(file_at(dir / "disk image"))) << "by its number";
    EXPECT_TRUE(below_file_system(0, 4001, 32).empty());
    EXPECT_TRUE(below_file_system(0, 40).empty());
}

TEST_F(kernel_tables, of_mounts_that_are_cut_anywhere_are_survived) {
    const std::string line = "31 1 0:4000 / /mnt rw shared:7 - fuse /no\\04 rw\n";
    for (std::size_t length = 0; length <= line.size(); ++length) {
        write("mounts", line.substr(0, length));
        EXPECT_TRUE(below_file_system(0, 4000, 31).empty()) << length;
    }
}

TEST(look_up, follows_links_to_what_exists_and_to_what_would_be_made) {
    const temp_dir dir;
    write_file(dir / "file", {});
    fs::create_directory(dir / "sub");
    fs::create_symlink("file", dir / "link");
    fs::create_symlink("link", dir / "link2");
    fs::create_symlink("sub/new", dir / "dangling");
    fs::create_symlink("round", dir / "round");
    for (const char* name : {"file", "link", "link2"}) {
        const found_file found = look_up(dir / name);
        EXPECT_TRUE(found.exists);
        EXPECT_EQ(found.id, file_at(dir / "file")) << name;
        EXPECT_EQ(found.file_system.device, file_at(dir / "file").device);
    }
    const found_file made = look_up(dir / "dangling");
    EXPECT_FALSE(made.exists);
    EXPECT_EQ(fs::path(made.path).lexically_normal(), dir / "sub/new");
    EXPECT_EQ(made.file_system.device, file_at(dir / "sub").device);
    EXPECT_FALSE(look_up(dir / "round").exists);
    EXPECT_FALSE(look_up(dir / "missing/file").exists);
    EXPECT_EQ(look_up(dir / "missing/file").file_system, file_system_id());
    EXPECT_FALSE(look_up("").exists);
}

}  // namespace
}  // namespace quarry::test
