/*
 * velcor.sys: the mirror-disk driver as this platform simulates it.
 *
 * It keeps one performance record of the driver and one of the filter, and hands them over on request; velcorfeed sets
 * both, with the failures that a scenario asks for. The exchange, its codes and its status words stand in velcor.h.
 *
 *   Records    the two records, the scripted failures, the peaks
 *   Requests   one routine for each control code
 *   Start      device, link, who may write to the device
 *
 * Nothing a caller sends is trusted: every request goes through RequestIsWhole before it reads or writes its buffer.
 */
#include <ntifs.h>

#include "velcor.h"

/* Not in the ntoskrnl headers; the same numbers as in winerror.h. */
#define WIN32_ERROR_INVALID_PARAMETER 87u

/* ---- Records ---- */

/* A driver's globals are not paged, so they may be touched while the spin lock is held. */
static KSPIN_LOCK    g_lock; /* guards the six below; held for a copy and its peaks at most */
static VELCOR_RECORD g_driver;
static VELCOR_RECORD g_filter;
static unsigned int  g_driverStatus;
static unsigned int  g_refuse;
static unsigned int  g_filterError;
static VELCOR_FED    g_fed;

/* One line for each peak: where it falls at a request, and whether it follows the queues to the other record. */
typedef struct PEAK {
    unsigned short peak;        /* offset in VELCOR_ENTRY */
    unsigned short now;         /* offset of the gauge it falls back to; 0: falls to 0 */
    unsigned char  followsMode; /* 1: counted by the record that holds the queues; 0: by the driver's alone */
} PEAK;

static const PEAK g_peaks[] = {
    { FIELD_OFFSET(VELCOR_ENTRY, write_us_max), 0, 1 },
    { FIELD_OFFSET(VELCOR_ENTRY, send_queue_peak), FIELD_OFFSET(VELCOR_ENTRY, send_queue), 1 },
    { FIELD_OFFSET(VELCOR_ENTRY, history_peak), FIELD_OFFSET(VELCOR_ENTRY, history), 0 },
    { FIELD_OFFSET(VELCOR_ENTRY, request_queue_peak), FIELD_OFFSET(VELCOR_ENTRY, request_queue), 1 },
    { FIELD_OFFSET(VELCOR_ENTRY, memory_peak), FIELD_OFFSET(VELCOR_ENTRY, memory), 0 },
    { FIELD_OFFSET(VELCOR_ENTRY, unsynced_peak), FIELD_OFFSET(VELCOR_ENTRY, unsynced), 0 },
    { FIELD_OFFSET(VELCOR_ENTRY, transfer_us_max), 0, 0 },
};
#define PEAK_NUM (sizeof(g_peaks) / sizeof(g_peaks[0]))

static unsigned long long* Number(VELCOR_ENTRY* entry, unsigned short offset)
{
    return (unsigned long long*)(void*)((unsigned char*)entry + offset);
}

/* A new interval begins: gauges' peaks stand at the present value, longest times at 0. Lock held. */
static void ResetPeaks(VELCOR_RECORD* record)
{
    unsigned int disk;
    unsigned int i;

    for (disk = 0; disk < VELCOR_DISK_MAX; disk++) {
        VELCOR_ENTRY* entry = &record->entry[disk];
        for (i = 0; i < PEAK_NUM; i++) {
            *Number(entry, g_peaks[i].peak) = g_peaks[i].now == 0 ? 0 : *Number(entry, g_peaks[i].now);
        }
    }
}

/*
 * The fed record takes over what the standing one has seen since its last request. A peak that follows the mode is
 * carried from the record that held the queues to the one that holds them now, so that a change of mode neither loses
 * it nor shows it twice. A disk that was not there, or is not there any more, has nothing to take over. Lock held.
 */
static void MergePeaks(VELCOR_FEED* feed)
{
    unsigned int disk;
    unsigned int i;

    for (disk = 0; disk < VELCOR_DISK_MAX; disk++) {
        VELCOR_ENTRY* oldDriver = &g_driver.entry[disk];
        VELCOR_ENTRY* newDriver = &feed->driver.entry[disk];
        VELCOR_ENTRY* oldHolder = VELCOR_DRIVER_HOLDS(oldDriver->mode) ? oldDriver : &g_filter.entry[disk];
        VELCOR_ENTRY* newHolder = VELCOR_DRIVER_HOLDS(newDriver->mode) ? newDriver : &feed->filter.entry[disk];

        if (oldDriver->state != VELCOR_STATE_INITIALIZED || newDriver->state != VELCOR_STATE_INITIALIZED) {
            continue;
        }
        for (i = 0; i < PEAK_NUM; i++) {
            VELCOR_ENTRY*       from = g_peaks[i].followsMode ? oldHolder : oldDriver;
            VELCOR_ENTRY*       to = g_peaks[i].followsMode ? newHolder : newDriver;
            unsigned long long* peak = Number(to, g_peaks[i].peak);
            unsigned long long  seen = *Number(from, g_peaks[i].peak);
            if (*peak < seen) {
                *peak = seen;
            }
        }
    }
}

/* ---- Requests ---- */

static NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG_PTR length)
{
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = length;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

/* The one place where lengths are looked at: after it, the system buffer holds at least that many bytes both ways. */
static BOOLEAN RequestIsWhole(PIRP irp, const IO_STACK_LOCATION* stack, ULONG in, ULONG out)
{
    return irp->AssociatedIrp.SystemBuffer != NULL && stack->Parameters.DeviceIoControl.InputBufferLength >= in &&
           stack->Parameters.DeviceIoControl.OutputBufferLength >= out;
}

/*
 * Answers a request for one of the records. A status word other than 0 leaves the caller's record as it was sent and
 * the peaks as they stand: what was not handed over is not lost for the next request.
 */
static NTSTATUS HandOver(PIRP irp, VELCOR_RECORD* record, const unsigned int* scripted, unsigned int badHeader,
                         unsigned int badLength)
{
    VELCOR_EXCHANGE* exchange = (VELCOR_EXCHANGE*)irp->AssociatedIrp.SystemBuffer;
    KIRQL            irql;

    if (exchange->record.header != VELCOR_REQUEST_HEADER) {
        exchange->status = badHeader;
    } else if (exchange->length != VELCOR_RECORD_LENGTH) {
        exchange->status = badLength;
    } else {
        KeAcquireSpinLock(&g_lock, &irql);
        exchange->status = *scripted;
        if (exchange->status == 0) {
            RtlCopyMemory(exchange->record.entry, record->entry, sizeof(record->entry));
            ResetPeaks(record);
        }
        KeReleaseSpinLock(&g_lock, irql);
    }
    return Complete(irp, STATUS_SUCCESS, sizeof(VELCOR_EXCHANGE));
}

static NTSTATUS GetPerformance(PIRP irp, const IO_STACK_LOCATION* stack)
{
    unsigned int refused;
    KIRQL        irql;

    if (!RequestIsWhole(irp, stack, sizeof(VELCOR_EXCHANGE), sizeof(VELCOR_EXCHANGE))) {
        return Complete(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    KeAcquireSpinLock(&g_lock, &irql);
    refused = g_refuse;
    KeReleaseSpinLock(&g_lock, irql);
    if (refused != 0) {
        return Complete(irp, STATUS_DEVICE_NOT_READY, 0);
    }
    return HandOver(irp, &g_driver, &g_driverStatus, VELCOR_STATUS_BAD_HEADER, VELCOR_STATUS_BAD_LENGTH);
}

static NTSTATUS GetFilter(PIRP irp, const IO_STACK_LOCATION* stack)
{
    if (!RequestIsWhole(irp, stack, sizeof(VELCOR_FILTER_EXCHANGE), sizeof(VELCOR_FILTER_EXCHANGE))) {
        return Complete(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    return HandOver(irp, &g_filter, &g_filterError, WIN32_ERROR_INVALID_PARAMETER, WIN32_ERROR_INVALID_PARAMETER);
}

static NTSTATUS Feed(PIRP irp, const IO_STACK_LOCATION* stack)
{
    VELCOR_FEED* feed;
    KIRQL        irql;

    if (!RequestIsWhole(irp, stack, sizeof(VELCOR_FEED), 0)) {
        return Complete(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    feed = (VELCOR_FEED*)irp->AssociatedIrp.SystemBuffer;
    KeAcquireSpinLock(&g_lock, &irql);
    MergePeaks(feed);
    RtlCopyMemory(&g_driver, &feed->driver, sizeof(g_driver));
    RtlCopyMemory(&g_filter, &feed->filter, sizeof(g_filter));
    g_driverStatus = feed->driver_status;
    g_refuse = feed->refuse;
    g_filterError = feed->filter_error;
    g_fed.feeds++;
    g_fed.tick = feed->tick;
    KeReleaseSpinLock(&g_lock, irql);
    return Complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS GetFed(PIRP irp, const IO_STACK_LOCATION* stack)
{
    KIRQL irql;

    if (!RequestIsWhole(irp, stack, 0, sizeof(VELCOR_FED))) {
        return Complete(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    KeAcquireSpinLock(&g_lock, &irql);
    *(VELCOR_FED*)irp->AssociatedIrp.SystemBuffer = g_fed;
    KeReleaseSpinLock(&g_lock, irql);
    return Complete(irp, STATUS_SUCCESS, sizeof(VELCOR_FED));
}

static NTSTATUS NTAPI OnControl(PDEVICE_OBJECT device, PIRP irp)
{
    const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);

    (void)device;
    switch (stack->Parameters.DeviceIoControl.IoControlCode) {
    case VELCOR_GET_PERFORMANCE:
        return GetPerformance(irp, stack);
    case VELCOR_PRIVATE_FEED:
        return Feed(irp, stack); /* the code's access bits: the system lets handles with write access through alone */
    case VELCOR_PRIVATE_GET_FILTER:
        return GetFilter(irp, stack);
    case VELCOR_PRIVATE_GET_FED:
        return GetFed(irp, stack);
    default:
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
}

static NTSTATUS NTAPI OnOpenClose(PDEVICE_OBJECT device, PIRP irp)
{
    (void)device;
    return Complete(irp, STATUS_SUCCESS, 0);
}

/* ---- Start ---- */

static UNICODE_STRING g_deviceName = RTL_CONSTANT_STRING(L"\\Device\\VELCOR_CTRL");
static UNICODE_STRING g_linkName = RTL_CONSTANT_STRING(L"\\DosDevices\\VELCOR_CTRL");

/* An access control entry for a well-known SID of up to two parts, laid out as the system reads it. */
typedef struct DEVICE_ACE {
    ACE_HEADER  header;
    ACCESS_MASK mask;
    UCHAR       revision;
    UCHAR       parts;
    UCHAR       authority[6];
    ULONG       part[2];
} DEVICE_ACE;

typedef struct DEVICE_ACL {
    ACL        header;
    DEVICE_ACE ace[3];
} DEVICE_ACL;
C_ASSERT(sizeof(DEVICE_ACE) == 24);
C_ASSERT(sizeof(DEVICE_ACL) == 8 + 3 * 24);

/* clang-format off */
#define DEVICE_ACE_FOR(mask, authority, parts, part1, part2)                                                           \
    { { ACCESS_ALLOWED_ACE_TYPE, 0, sizeof(DEVICE_ACE) }, mask, 1, parts, { 0, 0, 0, 0, 0, authority },                \
      { part1, part2 } }

/* Everybody may open the device for reading; feeding it is for the system and for administrators. */
static DEVICE_ACL g_acl = {
    { ACL_REVISION, 0, sizeof(DEVICE_ACL), 3, 0 },
    { DEVICE_ACE_FOR(FILE_ALL_ACCESS, 5, 1, 18, 0),     /* the system */
      DEVICE_ACE_FOR(FILE_ALL_ACCESS, 5, 2, 32, 544),   /* administrators */
      DEVICE_ACE_FOR(FILE_GENERIC_READ, 1, 1, 0, 0) }   /* everybody */
};
/* clang-format on */

static NTSTATUS ProtectDevice(PDEVICE_OBJECT device)
{
    SECURITY_DESCRIPTOR descriptor;
    HANDLE              handle = NULL;
    NTSTATUS            status;

    status = RtlCreateSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    if (NT_SUCCESS(status)) {
        status = RtlSetDaclSecurityDescriptor(&descriptor, TRUE, &g_acl.header, FALSE);
    }
    if (NT_SUCCESS(status)) {
        status = ObOpenObjectByPointer(device, OBJ_KERNEL_HANDLE, NULL, WRITE_DAC, NULL, KernelMode, &handle);
    }
    if (NT_SUCCESS(status)) {
        status = ZwSetSecurityObject(handle, DACL_SECURITY_INFORMATION, &descriptor);
        ZwClose(handle);
    }
    return status;
}

static VOID NTAPI OnUnload(PDRIVER_OBJECT driver)
{
    IoDeleteSymbolicLink(&g_linkName);
    IoDeleteDevice(driver->DeviceObject);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath)
{
    PDEVICE_OBJECT device = NULL;
    NTSTATUS       status;

    (void)registryPath;
    KeInitializeSpinLock(&g_lock);
    g_driver.header = VELCOR_REQUEST_HEADER;
    g_filter.header = VELCOR_REQUEST_HEADER;
    driver->MajorFunction[IRP_MJ_CREATE] = OnOpenClose;
    driver->MajorFunction[IRP_MJ_CLOSE] = OnOpenClose;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnControl;
    driver->DriverUnload = OnUnload;

    status = IoCreateDevice(driver, 0, &g_deviceName, VELCOR_DEVICE_TYPE, FILE_DEVICE_SECURE_OPEN, FALSE, &device);
    if (NT_SUCCESS(status)) {
        status = ProtectDevice(device);
    }
    if (NT_SUCCESS(status)) {
        status = IoCreateSymbolicLink(&g_linkName, &g_deviceName);
    }
    if (!NT_SUCCESS(status) && device != NULL) {
        IoDeleteDevice(device);
    }
    return status;
}
