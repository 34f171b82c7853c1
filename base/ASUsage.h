// Kinds counted by the object usage table, in the table's index order.
#pragma once

enum ASUsageKind : int {
    kUsageArray, kUsageHashTable, kUsageHashtableEntriesTable, kUsageASFile, kUsageASFileStream,
    kUsageASMemStream, kUsageASProcStream, kUsageAVDoc, kUsageAVMenu, kUsageAVMenubar,
    kUsageAVMenuItem, kUsageAVPageView, kUsageAVToolBar, kUsageAVToolButton, kUsageAVWindow,
    kUsageCosArray, kUsageCosBoolean, kUsageCosDict, kUsageCosDoc, kUsageCosDocRevision,
    kUsageCosName, kUsageCosNull, kUsageCosNumber, kUsageCosObjMappings, kUsageCosObjWriter,
    kUsageCosIndirect, kUsageCosIndirectKey, kUsageCosKeyValuePairsArray,
    kUsageCosXRefSubSectionArray, kUsageCosStream, kUsageCosString, kUsageCosTrailer,
    kUsageCosXRef, kUsageFilterInputStream, kUsageFilterOutputStream, kUsageASCIIHexFilter,
    kUsageASCII85Filter, kUsageLZWFilter, kUsageRunLengthFilter, kUsageCCITTFaxFilter,
    kUsageDCTFilter, kUsageFlateFilter, kUsagePDAction, kUsagePDAnnot, kUsagePDBookmark,
    kUsagePDBead, kUsageCosDictToPDBookmarkMapping, kUsageCosXObjectToPDXObjectMapping,
    kUsagePDDoc, kUsagePagesTreeHelper, kUsagePDPage, kUsagePDPath, kUsagePDFileSpec,
    kUsagePDFont, kUsagePDInlineImage, kUsagePDLinkAnnot, kUsagePDText, kUsagePDTextSelect,
    kUsagePDThread, kUsagePDTrans, kUsagePDViewDestination, kUsagePDWord, kUsagePDWordFinder,
    kUsagePDXObject, kUsageFDFDoc, kUsageApplicationDefinedObject, kUsageLSObjCollector,
    kUsageBitStreamWriter, kUsageOnePageCosObj, kUsagePDPageToPageNumberMappingbject,
    kUsageKindCount
};
static_assert(kUsageKindCount == 70, "the usage table has 70 rows");
