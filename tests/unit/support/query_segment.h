// What the daemon is to a reader, laid out by the test itself: a segment, a semaphore, linked lists.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

inline std::vector<uint8_t> mac_of(unsigned i) {
    return {0x02, 0xaa, 0, 0, 0, static_cast<uint8_t>(i)};
}

class QuerySegment : public testing::Test {
  protected:
    hbs_db *db = nullptr;
    sem_t *semaphore = nullptr;
    int shm_id = -1;

    void SetUp() override {
        (void)unlink(HBS_SHM_KEY_FILE);
        (void)sem_unlink(HBS_SEMAPHORE_NAME);
        make_key_file();
        make_segment();
        make_semaphore(1);
    }

    void TearDown() override {
        if (db != nullptr)
            remove_segment();
        if (semaphore != nullptr)
            remove_semaphore();
        (void)unlink(HBS_SHM_KEY_FILE);
    }

    static void make_key_file() {
        int fd = open(HBS_SHM_KEY_FILE, O_CREAT | O_WRONLY | O_TRUNC, 0644);
        ASSERT_NE(fd, -1);
        close(fd);
    }

    void make_segment(size_t size = HBS_SHM_SIZE) {
        shm_id = shmget(ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID), size, IPC_CREAT | IPC_EXCL | 0777);
        ASSERT_NE(shm_id, -1) << strerror(errno);
        db = static_cast<hbs_db *>(shmat(shm_id, nullptr, 0));
        if (size >= HBS_SHM_SIZE)
            make_links();
    }

    // A daemon that starts asks no reader, who looks until what it sees agrees: the sanitizer has nothing to
    // say of it.
    __attribute__((no_sanitize("thread"))) void make_links() {
        for (hbs_list_head *head : heads())
            head->next = head->prev = offset_of(head);
    }

    void remove_segment() {
        (void)shmctl(shm_id, IPC_RMID, nullptr);
        (void)shmdt(db);
        db = nullptr;
    }

    void make_semaphore(unsigned holders) {
        semaphore = sem_open(HBS_SEMAPHORE_NAME, O_CREAT | O_EXCL, 0666, holders);
        ASSERT_NE(semaphore, SEM_FAILED);
    }

    void remove_semaphore() {
        (void)sem_close(semaphore);
        (void)sem_unlink(HBS_SEMAPHORE_NAME);
        semaphore = nullptr;
    }

    std::vector<hbs_list_head *> heads() {
        return {&db->clients, &db->ip_index, &db->if_index, &db->dhcp_index, &db->rule_index, &db->pri_index};
    }

    uint32_t offset_of(const void *element) {
        return static_cast<uint32_t>(static_cast<const uint8_t *>(element) -
                                     reinterpret_cast<const uint8_t *>(db));
    }

    template <typename Element> void append(hbs_list_head *head, Element *element) {
        auto *links_of_last = reinterpret_cast<hbs_list_head *>(reinterpret_cast<uint8_t *>(db) + head->prev);
        element->next = offset_of(head);
        element->prev = head->prev;
        links_of_last->next = offset_of(element);
        head->prev = offset_of(element);
    }

    hbs_client *publish(unsigned slot, unsigned number) {
        hbs_client *client = &db->client_pool[slot];
        client->dbpos = offset_of(client);
        client->client_id = number;
        memcpy(client->mac, mac_of(number).data(), 6);
        append(&db->clients, client);
        return client;
    }

    hbs_client *publish_full() {
        hbs_client *client = publish(3, 7);
        const uint8_t ipv4[] = {192, 168, 0, 10};
        memcpy(client->ipv4, ipv4, 4);
        memset(client->ipv6, 0x20, 16);
        memset(client->ll, 0xfe, 16);
        strcpy(client->host, "laptop");
        strcpy(client->oui, "00AA11");
        strcpy(client->serial_number, "SN-1");
        strcpy(client->product_class, "Notebook");
        client->adapter_type = HBS_ADAPTER_WIFI;
        client->wifi_index = 2;
        return client;
    }

    int holders_to_spare() {
        int value = -1;
        (void)sem_getvalue(semaphore, &value);
        return value;
    }
};
