#include "journal/StorageMessages.h"

const TStorageMessages TStorageMessages::LoadDir{
    "TResStorage::LoadDir(): error locking storage (%1%)"};
const TStorageMessages TStorageMessages::DoLoadDir{
    "TResStorage::DoLoadDir(): error locking storage (%1%)",
    "TResStorage::DoLoadDir(): Storage (%1%) dir busy, retrying",
    "TResStorage::DoLoadDir(): Storage (%1%) dir open failure"};
const TStorageMessages TStorageMessages::RecreateDir{
    "TResStorage::RecreateDir(): error locking storage (%1%)", nullptr, nullptr,
    "TResStorage::RecreateDir(): Storage (%1%) cannot hold the id (%2%)"};
const TStorageMessages TStorageMessages::SaveDir{
    "TResStorage::SaveDir(): error locking storage (%1%)",
    "TResStorage::SaveDir(): Storage (%1%) dir busy, retrying",
    "TResStorage::SaveDir(): error writing storage (%1%)"};
const TStorageMessages TStorageMessages::AddResourceRecord{
    "TResStorage::AddResourceRecord(): error locking storage (%1%)",
    "TResStorage::AddResourceRecord(): Storage (%1%) dir busy, retrying",
    "TResStorage::AddResourceRecord(): error writing storage (%1%)",
    "TResStorage::AddResourceRecord(): Storage (%1%) cannot hold the id (%2%)"};
const TStorageMessages TStorageMessages::DeleteResourceRecord{
    "TResStorage::DeleteResourceRecord(): error locking storage (%1%)",
    "TResStorage::DeleteResourceRecord(): Storage (%1%) dir busy, retrying",
    "TResStorage::DeleteResourceRecord(): error writing storage (%1%)",
    "TResStorage::DeleteResourceRecord(): Storage (%1%) cannot hold the id (%2%)"};
const TStorageMessages TStorageMessages::CutTornTail{
    "TResStorage::CutTornTail(): error locking storage (%1%)",
    "TResStorage::CutTornTail(): Storage (%1%) dir busy, retrying",
    "TResStorage::CutTornTail(): error writing storage (%1%)"};
const TStorageMessages TStorageMessages::MergeDir{
    "TResStorage::MergeDir(): error locking storage (%1%)"};
