-- Inventory database of the controller: the present PCI functions ("PCIs", maintained by
-- the controller) and the adapter tables that libvqmdb_aim_parser fills from the AIM file.
-- Every table has the row id "_id"; every other column is nullable. Number columns are
-- INTEGER and text columns TEXT, so that a value put with the other type (the text "16"
-- into "MaxDataWidth", the number 1 into "Ethernet") is stored in the column's own type.
-- Safe to apply to an existing database: nothing is created twice.

CREATE TABLE IF NOT EXISTS "PCIs" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeIndex" INTEGER, "SlotNo" INTEGER,
  "DevKey" INTEGER, "FunKey" INTEGER,
  "HardwareId" INTEGER, "HardwareTypeId" INTEGER,
  "Location" INTEGER, "FunType" INTEGER,
  "VendorId" INTEGER, "DeviceId" INTEGER, "SubVendorId" INTEGER, "SubDeviceId" INTEGER,
  "ClsCode" INTEGER,
  "SlotType" INTEGER, "MaxPCIeType" INTEGER, "MaxLanes" INTEGER, "SlotDesignation" TEXT
);
CREATE INDEX IF NOT EXISTS "PCIs_by_address" ON "PCIs" ("SegNo", "BusNo", "DeviceNo", "FunctionNo");
CREATE INDEX IF NOT EXISTS "PCIs_by_FunKey" ON "PCIs" ("FunKey");
CREATE INDEX IF NOT EXISTS "PCIs_by_DevKey" ON "PCIs" ("DevKey");
CREATE INDEX IF NOT EXISTS "PCIs_by_HardwareId" ON "PCIs" ("HardwareId");
-- find_pci_func_keys: a device's functions by identifiers and bus address.
CREATE INDEX IF NOT EXISTS "PCIs_by_device" ON "PCIs" ("SegNo", "BusNo", "DeviceNo", "VendorId");

CREATE TABLE IF NOT EXISTS "PCIAdapter" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER,
  "CardName" TEXT, "ConnectorType" TEXT,
  "AIMSupported" INTEGER, "OOBSrc" INTEGER,
  "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "Location" INTEGER
);
CREATE INDEX IF NOT EXISTS "PCIAdapter_by_address" ON "PCIAdapter" ("SegNo", "BusNo", "DeviceNo", "FunctionNo");
CREATE INDEX IF NOT EXISTS "PCIAdapter_by_PCIFuncKey" ON "PCIAdapter" ("PCIFuncKey");

CREATE TABLE IF NOT EXISTS "PCIMisc" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "MaxDataWidth" INTEGER, "ConnectorLayout" TEXT, "PackageType" TEXT,
  "OtherPackageType" TEXT, "AIMSpecVersion" TEXT
);

CREATE TABLE IF NOT EXISTS "VPDs" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "UUID" TEXT, "ProductName" TEXT, "Manufacture" TEXT, "SerialNo" TEXT,
  "PartNo" TEXT, "Model" TEXT, "FRUNo" TEXT,
  "HardwareId" INTEGER, "HardwareTypeId" INTEGER, "Location" INTEGER
);
CREATE INDEX IF NOT EXISTS "VPDs_by_HardwareId" ON "VPDs" ("HardwareId", "HardwareTypeId");

CREATE TABLE IF NOT EXISTS "Firmwares" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "FirmwareName" TEXT, "VersionString" TEXT, "Description" TEXT, "ReleaseDate" TEXT,
  "Manufacture" TEXT, "Classification" TEXT, "SoftwareID" TEXT,
  "HardwareId" INTEGER, "HardwareTypeId" INTEGER, "Location" INTEGER
);
CREATE INDEX IF NOT EXISTS "Firmwares_by_HardwareId" ON "Firmwares" ("HardwareId", "HardwareTypeId");

CREATE TABLE IF NOT EXISTS "PCINetwork" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "NumberofPhysicalPorts" INTEGER, "MaxNumberofLogicalPorts" INTEGER
);

CREATE TABLE IF NOT EXISTS "PCIPhysicalPort" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "ConnectorLayout" TEXT, "Idx" INTEGER, "NumberofLogicalPorts" INTEGER, "PermanentAddress" TEXT
);

-- Live port statistics; a row that names only "Idx" and "PCIFuncKey" reports nothing yet.
CREATE TABLE IF NOT EXISTS "PCIPhysicalPortStat" (
  "_id" INTEGER PRIMARY KEY,
  "PCIFuncKey" INTEGER, "Idx" INTEGER,
  "LinkStatus" INTEGER DEFAULT 0, "LinkSpeed" INTEGER DEFAULT 0,
  "TxUtil" INTEGER DEFAULT 0, "RxUtil" INTEGER DEFAULT 0
);
CREATE INDEX IF NOT EXISTS "PCIPhysicalPortStat_by_PCIFuncKey" ON "PCIPhysicalPortStat" ("PCIFuncKey");

CREATE TABLE IF NOT EXISTS "PCILogicalPort" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "MaxDataSize" INTEGER, "PermanentAddress" TEXT, "NetworkAddresses" TEXT,
  "PhyIdx" INTEGER, "Idx" INTEGER, "LinkTechnology" TEXT, "vNICMode" TEXT,
  "MaxSpeed" INTEGER, "ProtocolType" TEXT,
  "Ethernet" TEXT, "FCoEFC" TEXT, "iSCSI" TEXT,
  "FCoEPermanentAddress" TEXT, "FCoENetworkAddressess" TEXT,
  "ConnectionType" TEXT, "Role" TEXT, "TargetRelativePortNumber" TEXT
);

CREATE TABLE IF NOT EXISTS "PCIGPU" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "VideoMemoryType" TEXT, "VideoMemorySize" TEXT, "TotalGPUChipNumber" INTEGER
);

CREATE TABLE IF NOT EXISTS "PCIGPUChip" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "GPUChipName" TEXT, "GPUChipManufacturer" TEXT, "GPUChipModel" TEXT,
  "GPUChipPartNumber" TEXT, "GPUChipSKU" TEXT, "GPUChipSerialNumber" TEXT,
  "GPUChipFormFactor" TEXT, "GPUChipIndex" INTEGER, "ExternalBusClockSpeed" INTEGER,
  "GPUChipFamily" TEXT, "GPUChipMaxClockSpeed" INTEGER, "GPUChipNumberOfEnabledCores" INTEGER,
  "GPUChipAddressWidth" INTEGER, "GPUChipDataWidth" INTEGER, "GPUChipUniqueID" TEXT
);

-- Drives reported by the AIM file. "BayNo" has no declared type: a bay is a number or a
-- name such as "M.2 Bay", and either is kept as written.
CREATE TABLE IF NOT EXISTS "AimDisks" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER, "SlotNo" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "CtrlType" INTEGER, "DriveTypeId" INTEGER, "BayNo", "LocationId" INTEGER,
  "Presence" INTEGER, "MediaTypeId" INTEGER,
  "FruNo" TEXT, "PartNo" TEXT, "SerialNo" TEXT, "UUID" TEXT,
  "Manufacturer" TEXT, "Manufacture" TEXT, "Model" TEXT, "FwVersion" TEXT, "Capacity" TEXT
);
CREATE INDEX IF NOT EXISTS "AimDisks_by_PCIFuncKey" ON "AimDisks" ("PCIFuncKey", "SlotNo");

CREATE TABLE IF NOT EXISTS "PldmDeviceFirmware" (
  "_id" INTEGER PRIMARY KEY,
  "SegNo" INTEGER, "BusNo" INTEGER, "DeviceNo" INTEGER, "FunctionNo" INTEGER,
  "NodeNo" INTEGER,
  "DeviceType" INTEGER, "PCIKey" INTEGER, "PCIFuncKey" INTEGER,
  "Location" INTEGER, "SlotNo" INTEGER,
  "VendorId" INTEGER, "DeviceId" INTEGER, "SubVendorId" INTEGER, "SubDeviceId" INTEGER,
  "DeviceName" TEXT, "Manufacture" TEXT, "SoftwareID" TEXT,
  "VersionString" TEXT, "ReleaseDate" TEXT,
  "UpdateSupport" INTEGER, "UpdateMethod" INTEGER
);
CREATE INDEX IF NOT EXISTS "PldmDeviceFirmware_by_function" ON "PldmDeviceFirmware" ("PCIKey", "SubDeviceId", "PCIFuncKey");
CREATE INDEX IF NOT EXISTS "PldmDeviceFirmware_by_ids" ON "PldmDeviceFirmware" ("VendorId", "DeviceId", "SubVendorId", "SubDeviceId", "SlotNo");
