#include "JournalCommand.h"

#include <memory>

void AddJournalOperations(CLI::App& app, const std::function<void(const TJournalCall&)>& run)
{
    struct TOperation
    {
        const char* Name;
        bool HasId;
        const char* Description;
    };
    constexpr TOperation kOperations[] = {
        {"load", false,
         "Load the journal, repairing a broken one, and print its records: one \"id<TAB>name\" a "
         "line"},
        {"verify", false,
         "Look at the journal without changing it and print what it is: whole, missing, torn tail, "
         "damage at byte N, or bad signature; the exit status is 0 only for whole"},
        {"add", true, "Record a resource; an ID with a \"/\" at its end is a folder"},
        {"remove", true, "Remove the record of a resource or folder"},
        {"rebuild", false, "Make the journal anew from what lies in FOLDER/content"},
        {"merge", false, "Rewrite the journal in its shortest form"},
    };
    app.require_subcommand(1);
    const auto call = std::make_shared<TJournalCall>();
    for (const TOperation& operation : kOperations) {
        CLI::App* const command = app.add_subcommand(operation.Name, operation.Description);
        command->add_option("FOLDER", call->Folder, "The storage folder")->required();
        if (operation.HasId)
            command->add_option("ID", call->Id, "An absolute id")->required();
        command->callback([call, run, name = operation.Name, hasId = operation.HasId] {
            call->Operation = name;
            call->HasId = hasId;
            run(*call);
        });
    }
}
