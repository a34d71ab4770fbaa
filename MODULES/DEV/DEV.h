/*
 * DEV: storage enumeration, mount table, mounting, SCSI generic map, disk
 * identity, temperature watch, device numbers, eject, modem, MMC commands and
 * disc classification.
 *
 * Plain C interface over caller-owned records.
 */
#ifndef DVR_DEV_H
#define DVR_DEV_H

#include <stddef.h>
#include <stdint.h>
#include <pthread.h>
#include <scsi/sg.h>

#ifdef __cplusplus
extern "C" {
#endif
/* Everything declared here is the library's interface: it alone leaves the
 * shared library, whose objects are built with hidden visibility. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

/* ===================================================== MMC commands */

/* One MMC command on its way to a drive: the name its log lines carry and
 * the platform's own SG_IO request header. */
#define MMC_CMD_NAME_SIZE 64
typedef struct MmcCmd {
    char name[MMC_CMD_NAME_SIZE];
    sg_io_hdr_t hdr;
} MmcCmd;

/* Runs the command on the open SCSI generic node fd. verbose 1 logs the
 * outcome and dumps sense data and the reply; any other value keeps quiet.
 * Returns 0 when done, -1 when the driver version could not be read, -2 for
 * a driver older than 30000, -3 when SG_IO failed, -4 when the command did. */
int Dev_ExecMMC(MmcCmd *pCmd, int fd, int verbose);

/* ===================================================== disc information record */

/* type1: family of the disc (0 until classified). */
enum {
    DISC_TYPE1_CD = 1,
    DISC_TYPE1_DVD_ROM = 2,
    DISC_TYPE1_DVD_MINUS = 3,
    DISC_TYPE1_DVD_PLUS = 4,
    DISC_TYPE1_DVD_RAM = 5,
    DISC_TYPE1_DDCD = 6,
    DISC_TYPE1_BD = 7
};

/* type2: writability class. */
enum { DISC_TYPE2_ROM = 1, DISC_TYPE2_R = 2, DISC_TYPE2_RW = 3, DISC_TYPE2_RAM = 4 };

/* type3: recording mode of a DVD-RW (0 for every other disc). */
enum { DISC_TYPE3_SEQUENTIAL = 1, DISC_TYPE3_RESTRICTED_OVERWRITE = 2 };

/* appendable: the disc status. */
enum {
    DISC_STATUS_EMPTY = 0,
    DISC_STATUS_INCOMPLETE = 1,
    DISC_STATUS_FINALIZED = 2,
    DISC_STATUS_OTHER = 3
};

/* What the optical operations learn of a disc; it fills the 64-byte info
 * field of a device record. Capacities are in KB, blocks are 2 KB. */
typedef struct DiscInfo {
    int32_t type1;
    int32_t type2;
    int32_t type3;
    int32_t sub_type;
    int32_t reseved_flag;
    int32_t appendable;
    int32_t last_lead_in;
    int32_t next_lead_in;
    int32_t last_track;
    int32_t total_session;
    uint32_t free_blocks;
    uint32_t track_size;
    uint64_t total_capacity;
    uint64_t used_capacity;
} DiscInfo;

/* Logs every field of the record in six lines. */
void Dev_ShowDiscInfo(const DiscInfo *pInfo);

/* ===================================================== drive probing */

/* pName names the device in log lines only and may be null; fd is the open
 * SCSI generic node. Each returns 1 for yes or done and 0 for no or failed. */

/* Tries TEST UNIT READY up to three times, sleeping a second after each
 * failure. */
int Dev_TestUnitReady(const char *pName, int fd);

/* Logs the size of the drive's buffer. */
int Dev_ReadBufferCapacity(const char *pName, int fd);

/* Logs vendor, product and revision; with pModel (room for
 * DEV_INQUIRY_MODEL_SIZE characters) writes the compacted model text. */
#define DEV_INQUIRY_MODEL_SIZE 25
int Dev_Inquiry(const char *pName, int fd, char *pModel);

/* Classifies the loaded disc by its current profile into type1, type2 and
 * type3; 1 when the recorder can export to it. */
int Dev_GetConfiguration(const char *pName, int fd, DiscInfo *pInfo);

/* ===================================================== SCSI generic map */

#define SG_MAP_SIZE 32
#define SG_NAME_SIZE 12

/* One SCSI generic node: its path, whether its drive is ready, and its SCSI
 * address (-1 in all four when the node was not reached). */
typedef struct SgMapEntry {
    char name[SG_NAME_SIZE];
    int32_t ready;
    int32_t bus;
    int32_t channel;
    int32_t id;
    int32_t lun;
} SgMapEntry;

/* Block, optical and tape node paths, ending with a null entry. */
#define SCSI_DEV_TABLE_SIZE 61
extern const char *const gScsiDevTable[SCSI_DEV_TABLE_SIZE + 1];

/* Fills SG_MAP_SIZE entries, indexed by node number; returns how many are
 * ready. */
int Dev_BuildSgMap(SgMapEntry *pMap);
/* "/dev/sg<k>" when numeric, else "/dev/sg<letter>"; pName has room for
 * SG_NAME_SIZE characters. */
void Dev_MakeDevName(char *pName, int k, int numeric);
/* The generic node of a block node and the other way round. 0: found and
 * ready; 1: found, not ready; -1: failure or no counterpart. */
int Dev_SdToSg(char *pSg, const char *pSd);
int Dev_SgToSd(char *pSd, const char *pSg);

/* ===================================================== disc and track status */

/* pName names the device in log lines and may be null; fd is the open SCSI
 * generic node; pInfo must not be null. 1 when done, 0 when a command
 * failed, and then the record is unchanged. */
int Dev_ReadDiscInfo(const char *pName, int fd, DiscInfo *pInfo);
int Dev_ReadTrackInfo(const char *pName, int fd, DiscInfo *pInfo);
int Dev_ReadFormatCapacity(const char *pName, int fd, DiscInfo *pInfo);
int Dev_ReadCapacity(const char *pName, int fd);
int Dev_ReadPreRecordedInfo(const char *pName, int fd);

/* ===================================================== CD information */

/* Capacity from the ATIP, used space from the table of contents. 1 when
 * done, 0 when a command failed. */
int Dev_ReadCdATIP(const char *pName, int fd, DiscInfo *pInfo);
int Dev_ReadCdToc(const char *pName, int fd, DiscInfo *pInfo);
int Dev_GetCdInfo(const char *pName, int fd, DiscInfo *pInfo);

/* ===================================================== DVD and Blu-ray information */

/* Physical format of a DVD: a write-once DVD gets the fixed capacity of its
 * class (layers, 80 or 120 mm). 1 when done, 0 when the command failed. */
int Dev_ReadDvdStruct(const char *pName, int fd, DiscInfo *pInfo);
/* Prints the table of contents by logical blocks; the used space of a
 * write-once DVD from its status (and, for a DVD+R, from the lead-out). */
int Dev_ReadDvdRToc(const char *pName, int fd, DiscInfo *pInfo);
/* Status, capacity and last track of a DVD-/+R(W) or of a BD-R/RE. 1 when
 * done, 0 when a command failed or the writability class has no reading. */
int Dev_GetDvdInfo(const char *pName, int fd, DiscInfo *pInfo);
int Dev_GetBDInfo(const char *pName, int fd, DiscInfo *pInfo);

/* ===================================================== mount table */

/* One line of /proc/mounts. Columns wider than their field are cut to fit
 * (the field always ends with a null character). */
#define DEV_MOUNT_DEVICE_SIZE 128
#define DEV_MOUNT_DIR_SIZE 128
#define DEV_MOUNT_TYPE_SIZE 16
#define DEV_MOUNT_OPTS_SIZE 240
typedef struct MountEntry {
    char device[DEV_MOUNT_DEVICE_SIZE];
    char dir[DEV_MOUNT_DIR_SIZE];
    char type[DEV_MOUNT_TYPE_SIZE];
    char opts[DEV_MOUNT_OPTS_SIZE];
} MountEntry;

/* A mount point buffer of the caller holds DEV_MPT_SIZE bytes. */
#define DEV_MPT_SIZE 80

/* The mount point of a device. n = 0: the first line whose device begins with
 * pDev; n > 0: the first n characters equal and the device no longer than n.
 * 0 and pMPT filled, or -1 with pMPT unchanged. */
int Dev_nGetMPT(const char *pDev, char *pMPT, int n);
int Dev_GetMPT(const char *pDev, char *pMPT);
/* The device of the last line mounted exactly on pMPT. */
int Dev_GetDevViaMount(char *pDev, const char *pMPT);
/* The first whole line whose device or mount point is pKey. */
int Dev_GetEntryViaMtab(const char *pKey, MountEntry *pEntry);

/* ===================================================== mounting and unmounting */

/* One file system the recorder can mount: whether the kernel has it, its type
 * name, its mount flags (MS_MGC_VAL is added at each mount) and its option
 * text (null: none). */
typedef struct FsEntry {
    int32_t enabled;
    const char *name;
    uint32_t flags;
    const char *options;
} FsEntry;

#define DEV_FS_COUNT 10
#define DEV_FS_ISO9660 6 /* what a disc is mounted as */
#define DEV_FS_NFS 8
#define DEV_FS_AUTO 10 /* any number outside 0..9 probes */

/* The file-system number of Dev_Mount is the index into gFsArray.
 * gFsArrayReady is 1 once Dev_InitFsArray has run. */
extern FsEntry gFsArray[DEV_FS_COUNT];
extern int gFsArrayReady;

/* Mounts pSrc (device path, or host:/path for NFS) on the existing directory
 * pDst as file system fs, or probing when fs is outside 0..9. 0 or -1; on the
 * NFS road the result of Dev_MountNfs. */
int Dev_Mount(const char *pSrc, const char *pDst, int fs);
/* Runs "/bin/mount -t nfs -o <options> pSrc pDst"; the result of COM_System. */
int Dev_MountNfs(const char *pSrc, const char *pDst);
/* Disables the rows whose file system /proc/filesystems lacks. */
void Dev_InitFsArray(void);
/* 0 if /proc/partitions lists the name behind the last '/' of pName, else -1. */
int Dev_IsInProcPartitions(const char *pName);
/* umount / umount2(MNT_FORCE); after an NFS unmount the server gets UMNT. */
int Dev_uMount(const char *pDst);
int Dev_uMount_Force(const char *pDst);
/* Sends the MOUNT protocol's UMNT for pSpec ("host:/path"), with the mount's
 * option text pOpts (addr=, mountport=, tcp) or null. 0 when the server took
 * the call, else 1. */
int Dev_NfsUmountRpc(const char *pSpec, const char *pOpts);
/* Removes a directory, unmounting it first if something is mounted there. */
int COM_Rmdir(const char *path);

/* The UMNT argument encoder: xdr_string on *pPath with the limit
 * DEV_NFS_PATH_MAX. The stream is libtirpc's XDR. */
#define DEV_NFS_PATH_MAX 1024
struct __rpc_xdr;
int Dev_XdrDirPath(struct __rpc_xdr *xdrs, char **pPath);

/* ===================================================== storage enumeration */

/* The reading of a device record's info for a hard disk: the statfs figures
 * of its file system and the size of the block device. The rest of info is
 * left alone. */
typedef struct HDStat {
    int32_t fs_type;
    int32_t block_size;
    uint32_t blocks_free; /* stands before the total */
    uint32_t blocks_total;
    uint64_t total_bytes;
    uint64_t free_bytes;
    uint64_t device_bytes;
} HDStat;

#define DEV_INFO_SIZE 64
/* 64 bytes: an HDStat for a hard disk, a DiscInfo for every other device. */
typedef union DevInfo {
    uint8_t bytes[DEV_INFO_SIZE];
    HDStat hd;
    DiscInfo disc;
} DevInfo;

#define DEV_MODEL_SIZE 68
#define DEV_NODE_SIZE 12

/* iface */
enum { DEV_IFACE_ATA = 0, DEV_IFACE_USB = 1, DEV_IFACE_IEEE1394 = 2 };

/* One disk or drive. IDE disks have -1 in bus, channel and lun, the code of
 * their letter in id, and their block node in sg as well as in dev. */
typedef struct DevRecord {
    char model[DEV_MODEL_SIZE];
    int32_t bus;
    int32_t channel;
    int32_t id;
    int32_t lun;
    char dev[DEV_NODE_SIZE];
    char sg[DEV_NODE_SIZE];
    char mpt[DEV_MPT_SIZE];
    uint8_t ready; /* 1: ready */
    uint8_t cdrom; /* 0: hard disk */
    uint8_t iface;
    DevInfo info;
} DevRecord;

/* A device array holds DEV_MAX_DEVICES records. */
#define DEV_MAX_DEVICES 32
#define DEV_MAX_IDE_DISKS 8

/* Fills the caller's zeroed array of DEV_MAX_DEVICES records: IDE disks from
 * /proc/ide, then the nodes of gScsiDevTable with an entry in the generic
 * map; measures every hard disk and prints the list. Returns the count. */
int Dev_Get(DevRecord *pDev);
/* Measures the disk of pDev->dev into pDev->info.hd, mounting it on a
 * temporary directory under /var as file system fs if it isn't mounted.
 * 0: was mounted (mpt holds the mount point); 1: mounted for the moment (mpt
 * empty again); -1: no mount point could be had. */
int Dev_GetHDStat(DevRecord *pDev, int fs);

/* ===================================================== disc overview */

/* Reads the disc of an optical device record into pDev->info.disc and sets
 * ready. 0: supported disc (later reads may have failed); 1: null record;
 * 2: hard disk; -1: generic node not opened; -129: no medium ready; -130:
 * disc not usable for export. */
int Dev_GetDiscInfo(DevRecord *pDev);
/* Trial mounts of a rewritable disc on /var/dvd_plus_rw, /var/dvd_minus_rw or
 * /var/bd_re: the used space becomes the file system's size. 0 done; 1 null
 * record; 2 not optical; -1 no mount point; -2 mount failed; -3 statfs
 * failed. */
int Dev_GetDvdPlusRwInfo(DevRecord *pDev);
int Dev_GetDvdMinusRwInfo(DevRecord *pDev);
int Dev_GetBDReInfo(DevRecord *pDev);

/* ===================================================== disk identity and SMART */

/* Result buffers of Dev_GetDevIdentify: serial number, firmware, model. */
#define DEV_SN_SIZE 21
#define DEV_FW_REV_SIZE 9
#define DEV_ATA_MODEL_SIZE 41
/* The result buffer of the ID readers. */
#define DEV_ID_SIZE 256

/* The SMART attribute of the disk temperature in degrees. */
#define DEV_SMART_TEMPERATURE 0xC2

typedef struct SmartValue {
    uint8_t attribute; /* in */
    int8_t value;      /* out: the attribute's first raw byte */
} SmartValue;

/* Names are disks with or without /dev/ (hda, /dev/hda). Each gives 0 or -1,
 * silently when the disk has no /proc/ide entry. */
int Dev_GetDevIdentify(const char *pDevPath, char *pSN, char *pFwRev, char *pModel);
int Dev_GetSmartValue(const char *pDev, SmartValue *pSmart);
/* The ID file: the serial number of the disk mounted on pMPT, in the file
 * "ID" in its root. */
int Dev_SaveIDViaMount(const char *pMPT);
int Dev_GetIDViaMount(char *pID, const char *pMPT);
int Dev_GetIDViaDev(char *pID, const char *pDev);

/* ===================================================== disk temperature watchdog */

#define DEV_WATCH_DISKS 8
#define DEV_WATCH_PERIOD_SECONDS 300

/* status */
enum {
    DEV_TEMP_UNWATCHED = 0,
    DEV_TEMP_NORMAL = 1,
    DEV_TEMP_HOT_HOLD = 2,
    DEV_TEMP_OVERHEATED = 3,
    DEV_TEMP_COOL_HOLD = 4,
    DEV_TEMP_RECOVERED = 5
};

typedef struct DiskTempState {
    char name[8]; /* hda to hdh */
    int16_t status;
    int16_t prev_status;
    int64_t since; /* seconds; -1 when no hold runs */
} DiskTempState;

/* index: 0 for hda; now in seconds. Runs on the watch thread, no lock held;
 * must not destroy the watch. The result isn't used. */
typedef int (*DevTempCallback)(int index, DiskTempState *pDisk, int64_t now);

typedef struct TempWatch {
    pthread_t thread;
    pthread_mutex_t mutex; /* guards the write of running */
    int32_t running;
    uint8_t temp_high;     /* at or above: too hot */
    uint8_t temp_low;      /* at or below: cool */
    uint16_t hold_seconds; /* how long a reading must last */
    DevTempCallback on_overheat;
    DevTempCallback on_recover;
    DiskTempState disks[DEV_WATCH_DISKS];
} TempWatch;

/* 0, the error number of pthread_create / pthread_cancel, or -1 for null. */
int Dev_DiskTempWatchDogCreate(TempWatch *pWatch);
int Dev_DiskTempWatchDogDestroy(TempWatch *pWatch);
void *Dev_TempWatchThread(void *pWatch);
/* One step of a disk's state machine; the disk's status after it. */
int Dev_SubTempWatch(TempWatch *pWatch, DiskTempState *pDisk, SmartValue *pSmart, int index);

/* ===================================================== partition check and device numbers */

/* 0: 55 AA at byte 510; 1: none, or no seek; 2: short read; -1: no open. */
int Dev_CheckPartition(const char *pDev);

/* A row of the major table; a name ending in '?' takes disk letters. */
typedef struct MajorEntry {
    int32_t major; /* below 1: end of the table */
    int32_t max_minor;
    int32_t base; /* disk index of the major's first disk */
    char name[16];
} MajorEntry;

#define DEV_MAJOR_TABLE_SIZE 20 /* with the end row */
extern const MajorEntry gMajorTable[DEV_MAJOR_TABLE_SIZE];

/* A node name buffer holds DEV_NODE_NAME_SIZE bytes. */
#define DEV_NODE_NAME_SIZE 32
/* 0: done; 1: minor out of range (pName holds the stem); -1: unknown major. */
int Dev_ConvertMajorMinor(int major, int minor, char *pName);
/* Appends the letters of a disk index: a..z, aa, ab ... (carry 0 from
 * outside). */
void Dev_AppendDiskLetters(int index, char *pName, int carry);

/* ===================================================== media eject */

/* pDev names the device in the progress lines, which go to standard output;
 * fd is the device's open node. EjectCdrom gives the result of CDROMEJECT, 0
 * when done. EjectScsi unlocks and opens the tray by SG_IO: 0 when done, -1
 * when fd is no SCSI generic device of driver version 30000 or later, or the
 * result of the request that failed. */
int EjectCdrom(const char *pDev, int fd);
int EjectScsi(const char *pDev, int fd);
/* Ejects every USB optical drive that holds a CD-ROM, the one disc the
 * recorder can't export to: 0 when at least one was ejected, else -1. */
int Dev_EjectUsbCdrom(void);
/* Run before the sweep enumerates; does nothing and gives 0. */
int Dev_RescanScsiBus(void);

/* ===================================================== 3G modem */

/* The buffer of Dev_Insert3gModemDriver holds DEV_TTY_PATH_SIZE bytes. */
#define DEV_TTY_PATH_SIZE 16
/* Loads /lib/modules/gsm_modem.ko for the first USB device with an interface
 * that has no driver and whose numbers give a serial port, and writes that
 * port's node path ("/dev/ttyUSB<n>", made if missing) into pDev. 0 when a
 * port is ready; -1 with pDev empty otherwise. Runs insmod, rmmod and mknod
 * as found on PATH; one caller at a time. */
int Dev_Insert3gModemDriver(char *pDev);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif /* DVR_DEV_H */
