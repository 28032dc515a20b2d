// The files of examples/house agree with each other.
#include "ProjectFile/JsonMembers.h"
#include "ProjectFile/Project.h"
#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

namespace {

const std::string kHouse = HOUSE_EXAMPLE;

std::string Contents(const std::string& name) {
    std::ifstream file(kHouse + "/" + name);
    EXPECT_TRUE(file.is_open()) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// One line of group-addresses.csv.
struct GroupAddress {
    std::string address;
    std::string name;
    std::string dpt;
    std::string dataPoint;
};

std::vector<GroupAddress> GroupAddresses() {
    std::istringstream lines(Contents("group-addresses.csv"));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "address,name,dpt,data point");
    std::vector<GroupAddress> addresses;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        GroupAddress& address = addresses.emplace_back();
        for (std::string* field : {&address.address, &address.name, &address.dpt, &address.dataPoint}) {
            EXPECT_TRUE(std::getline(fields, *field, ',')) << line;
        }
        EXPECT_TRUE(fields.eof()) << line;
    }
    return addresses;
}

/// One group object of knxstackd.json.
struct GroupObject {
    std::string name;
    std::string dpt;
    std::string flags;
    std::vector<std::string> addresses;
};

std::map<std::uint16_t, GroupObject> GroupObjects() {
    ProjectFile::ErrorList errors("knxstackd.json");
    const auto root = ProjectFile::ParseJson(Contents("knxstackd.json"), errors);
    EXPECT_TRUE(root) << errors.Take().front();
    std::map<std::uint16_t, GroupObject> objects;
    for (const auto& value : root->at("groupObjects").as_array()) {
        const auto text = [&value](const char* member) { return std::string(value.at(member).as_string()); };
        GroupObject object{text("name"), text("dpt"), text("flags"), {}};
        for (const auto& address : value.at("addresses").as_array()) {
            object.addresses.emplace_back(address.as_string());
        }
        const auto number = value.at("number").to_number<std::uint16_t>();
        EXPECT_TRUE(objects.emplace(number, object).second) << number << " stands twice";
    }
    return objects;
}

std::shared_ptr<const ProjectFile::Project> Project() {
    const auto result = ProjectFile::LoadProject(kHouse + "/project.json");
    if (!result) {
        throw std::runtime_error(result.Error());
    }
    return result.project;
}

} // namespace

TEST(HouseExample, EveryGroupAddressHasItsGroupObjectAndDataPoint) {
    const auto project = Project();
    std::map<std::string, std::uint16_t> coOfAddress;
    const auto objects = GroupObjects();
    for (const auto& [number, object] : objects) {
        for (const std::string& address : object.addresses) {
            EXPECT_TRUE(coOfAddress.emplace(address, number).second) << address << " has two objects";
        }
    }
    for (const GroupAddress& row : GroupAddresses()) {
        SCOPED_TRACE(row.address);
        ASSERT_TRUE(coOfAddress.contains(row.address));
        const std::uint16_t co = coOfAddress[row.address];
        coOfAddress.erase(row.address);
        EXPECT_EQ(objects.at(co).name, row.name);
        EXPECT_EQ(objects.at(co).dpt, row.dpt);
        const ProjectFile::DataPoint* point = project->FindByCo(co);
        ASSERT_NE(point, nullptr);
        EXPECT_EQ(point->name, row.dataPoint);
        const auto type = Datapoint::Parse(row.dpt);
        ASSERT_TRUE(type);
        EXPECT_EQ(project->DptOfCo(co), Datapoint::ToKnxDpt(*type));
    }
    for (const auto& [address, number] : coOfAddress) {
        ADD_FAILURE() << address << " of object " << number << " is not in group-addresses.csv";
    }
}

TEST(HouseExample, EveryBoundDataPointHasGroupObjectsWithTheFlagsItNeeds) {
    const auto project = Project();
    const auto objects = GroupObjects();
    for (const ProjectFile::DataPoint& point : project->dataPoints) {
        if (!point.knx) {
            continue;
        }
        SCOPED_TRACE(point.name);
        for (const std::uint16_t co : {point.knx->readCo, point.knx->writeCo}) {
            if (co == 0) {
                continue;
            }
            ASSERT_TRUE(objects.contains(co)) << co;
            const std::string& flags = objects.at(co).flags;
            EXPECT_NE(flags.find('C'), std::string::npos);
            EXPECT_NE(flags.find('T'), std::string::npos);
            // Only the device's own values answer a read; for the others the actuator does.
            EXPECT_EQ(flags.find('R') != std::string::npos, point.knx->readInternal) << flags;
        }
    }
}

TEST(HouseExample, ShowsGroupAddressesOfManyTypes) {
    std::set<std::uint16_t> mainTypes;
    unsigned extendedFrames = 0;
    const auto addresses = GroupAddresses();
    for (const GroupAddress& row : addresses) {
        const auto type = Datapoint::Parse(row.dpt);
        ASSERT_TRUE(type) << row.dpt;
        mainTypes.insert(type->main);
        extendedFrames += Datapoint::SizeInBits(*Datapoint::Find(*type)) > 14 * 8 ? 1 : 0;
    }
    EXPECT_GE(addresses.size(), 60u);
    EXPECT_GE(mainTypes.size(), 25u);
    EXPECT_GE(extendedFrames, 1u);
}

TEST(HouseExample, RegistryNamesTheProjectThatTheDaemonsUse) {
    EXPECT_NE(
        Contents("knxappprghandlers.xml").find(R"(Library="libProjectHandler.so" ConfigFile="project.json")"),
        std::string::npos);
    for (const char* file : {"devicestackd.json", "knxstackd.json"}) {
        EXPECT_NE(Contents(file).find(R"("project": "project.json")"), std::string::npos) << file;
        EXPECT_NE(Contents(file).find(R"(": "devicestack.sock")"), std::string::npos) << file;
    }
}

TEST(HouseExample, DownloadReplacesTheProjectOfTheDeviceStack) {
    const auto read = [](const std::string& name) {
        ProjectFile::ErrorList errors(name);
        const auto root = ProjectFile::ParseJson(Contents(name), errors);
        EXPECT_TRUE(root) << name;
        return root->as_object();
    };
    const auto download = read("download.json");
    const auto deviceStack = read("devicestackd.json");
    EXPECT_EQ(download.at("project"), deviceStack.at("project"));
    EXPECT_EQ(download.at("stateDirectory"), deviceStack.at("stateDirectory"));
    EXPECT_NE(Contents("knxappprghandlers.xml").find(R"(ConfigFile="download.json")"), std::string::npos);
}
